#include "tools/lanscout/output/html.h"

#include <fmt/core.h>
#include <sys/random.h>

#include <array>
#include <stdexcept>
#include <string_view>
#include <variant>

#include "finder/device/devicejson.h"
#include "finder/text/safetext.h"
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

// The columns that the page shows, and in the details every field: name, title, how it is sorted.
Json FieldsToJson() {
    Json json = Json::array();
    for (const Field& field : Fields()) {
        json.push_back({{"name", field.name},
                        {"title", field.title},
                        {"column", field.rank != kNotInTable},
                        {"number", field.sort != SortKind::Text},
                        {"kind", std::holds_alternative<Kind Device::*>(field.member)},
                        {"wraps", field.width.least > 0}});
    }
    return json;
}

// A list stays one: each of its items has a line in the details.
Json TextToJson(const Field& field, const Device& device) {
    if (std::holds_alternative<std::vector<std::string> Device::*>(field.member)) {
        return FieldToJson(field, device);
    }
    return ShownText(field, device);
}

// What the page says beside the address.
Json MarksOf(const Device& device) {
    Json marks = Json::array();
    if (IsUnconfigured(device)) {
        marks.push_back("not set up");
    }
    if (device.sharedAddress) {
        marks.push_back("shares its address");
    }
    return marks;
}

Json RowToJson(const Device& device) {
    Json texts = Json::array();
    for (const Field& field : Fields()) {
        texts.push_back(TextToJson(field, device));
    }
    Json via = Json::array();
    for (const Target& target : device.seenVia) {
        via.push_back({{"interface", target.interface}, {"address", target.address}});
    }
    return {{"address", ShownAddress(device)},
            {"kind", KindText(device.kind)},
            {"marks", MarksOf(device)},
            {"via", std::move(via)},
            {"texts", std::move(texts)}};
}

Json PageData(const Report& report) {
    Json data = ReportToJson(report);
    data.erase("devices");
    data["fields"] = FieldsToJson();
    data["rows"] = Json::array();
    for (const Device& device : report.devices) {
        data["rows"].push_back(RowToJson(device));
    }
    return data;
}

}  // namespace

std::string PageDocument(const Report& report) {
    std::string page = static_cast<const char*>(kPageTemplate);
    ReplaceAll(page, kNoncePlace, MakeNonce());
    ReplaceAll(page, kDataPlace, ForScriptElement(DumpLine(PageData(report))));
    return page;
}

std::unique_ptr<Output> HtmlOutput::Make(const Means& means) {
    return std::make_unique<HtmlOutput>(means);
}

void HtmlOutput::Write(const Report& report) const {
    m_means.writeFile(m_means.settings.html, PageDocument(report));
}

void HtmlOutput::EndSearch(const Report& report) {
    Write(report);
}

void HtmlOutput::EndComparison(const Report& report, const Comparison& /*comparison*/) {
    Write(report);
}

void HtmlOutput::EndRound(const Report& report) {
    std::string failure;
    try {
        Write(report);
    } catch (const std::runtime_error& wrong) {
        failure = wrong.what();
    }
    if (!failure.empty() && failure != m_failure) {
        m_means.console.Say("lanscout: " + ForDisplay(failure) + "; the watch goes on without it");
    }
    m_failure = failure;
}

}  // namespace Lanscout
