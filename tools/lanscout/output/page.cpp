#include "tools/lanscout/output/page.h"

#include <fmt/core.h>
#include <sys/random.h>

#include <array>
#include <stdexcept>
#include <string_view>

#include "tools/lanscout/output/formats.h"
#include "tools/lanscout/output/pagetemplate.h"

namespace Lanscout {
namespace {

constexpr std::string_view kNoncePlace = "@NONCE@";
constexpr std::string_view kDataPlace = "@DATA@";

// Only a script that bears this page's own nonce runs (Content Security Policy Level 3, 7.1).
std::string MakeNonce() {
    std::array<unsigned char, 16> random{};
    if (getrandom(random.data(), random.size(), 0) != static_cast<ssize_t>(random.size())) {
        throw std::runtime_error("no random numbers for the page");
    }
    std::string nonce;
    for (const unsigned char byte : random) {
        nonce += fmt::format("{:02x}", byte);
    }
    return nonce;
}

// JSON that no HTML parser takes for markup, whatever its texts are. All of it is ASCII already.
std::string ForScriptElement(const std::string& json) {
    std::string text;
    text.reserve(json.size());
    for (const char c : json) {
        switch (c) {
            case '<':
                text += "\\u003c";
                break;
            case '>':
                text += "\\u003e";
                break;
            case '&':
                text += "\\u0026";
                break;
            default:
                text += c;
        }
    }
    return text;
}

void ReplaceAll(std::string& text, std::string_view place, std::string_view with) {
    for (auto at = text.find(place); at != std::string::npos; at = text.find(place, at)) {
        text.replace(at, place.size(), with);
        at += with.size();
    }
}

}  // namespace

std::string PageDocument(const Report& report) {
    std::string page = static_cast<const char*>(kPageTemplate);
    ReplaceAll(page, kNoncePlace, MakeNonce());
    ReplaceAll(page, kDataPlace, ForScriptElement(DumpLine(ReportToJson(report))));
    return page;
}

}  // namespace Lanscout
