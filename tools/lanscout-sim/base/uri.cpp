#include "tools/lanscout-sim/base/uri.h"

#include <algorithm>

namespace lansim {
namespace {

bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool IsLetterOrDigit(char c) {
    return IsLetter(c) || (c >= '0' && c <= '9');
}

}  // namespace

bool IsUri(std::string_view text) {
    constexpr std::string_view kMarks = "-._~:/?#[]@!$&'()*+,;=%";
    constexpr std::string_view kSchemeMarks = "+-.";
    const auto colon = text.find(':');
    if (colon == std::string_view::npos || colon == 0 || colon + 1 == text.size()) {
        return false;
    }
    const auto scheme = text.substr(0, colon);
    return IsLetter(scheme.front()) &&
           std::ranges::all_of(
               scheme,
               [&](char c) { return IsLetterOrDigit(c) || kSchemeMarks.find(c) != kMarks.npos; }) &&
           std::ranges::all_of(
               text, [&](char c) { return IsLetterOrDigit(c) || kMarks.find(c) != kMarks.npos; });
}

}  // namespace lansim
