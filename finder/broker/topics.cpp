#include "finder/broker/topics.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "finder/text/safetext.h"

namespace Lanscout {
namespace {

constexpr std::string_view kRoot = "lanscout/";
constexpr std::string_view kDevice = "device/";
constexpr std::array<std::string_view, 4> kParts{"status", "info", "round", "event"};

bool IsIdCharacter(char c) {
    constexpr std::string_view kOthers = "._-";
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           kOthers.find(c) != std::string_view::npos;
}

// FNV-1a: the same in every release, on every machine.
std::uint32_t NumberOf(std::string_view text) {
    std::uint32_t number = 2166136261U;
    for (const char c : text) {
        number = (number ^ static_cast<unsigned char>(c)) * 16777619U;
    }
    return number;
}

}  // namespace

bool IsSiteName(std::string_view name) {
    constexpr std::string_view kForbidden = "/+# \t\\\"'<>&,;";
    return !name.empty() && name.size() <= kLongestSiteName && name.front() != '$' &&
           name.find_first_of(kForbidden) == std::string_view::npos && ToValidUtf8(name) == name &&
           ForDisplay(name) == name;
}

bool IsDeviceId(std::string_view id) {
    return !id.empty() && id.size() <= kLongestDeviceId &&
           std::all_of(id.begin(), id.end(), &IsIdCharacter);
}

std::string SafeId(std::string_view text) {
    if (text.empty() || IsDeviceId(text)) {
        return std::string(text);
    }
    constexpr std::size_t kNumberLength = 9;
    std::string safe(text.substr(0, kLongestDeviceId - kNumberLength));
    std::replace_if(
        safe.begin(), safe.end(), [](char c) { return !IsIdCharacter(c); }, '-');
    return fmt::format("{}-{:08x}", safe, NumberOf(text));
}

std::string IdOfMac(const std::string& mac) {
    std::string id;
    for (const char c : mac) {
        if (c != ':') {
            id += c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
        }
    }
    return SafeId(id);
}

std::string SiteTopic(std::string_view site, std::string_view part) {
    return fmt::format("{}{}/{}", kRoot, site, part);
}

std::optional<SitePart> ParseSiteTopic(std::string_view topic) {
    if (!topic.starts_with(kRoot)) {
        return std::nullopt;
    }
    topic.remove_prefix(kRoot.size());
    const std::size_t slash = topic.find('/');
    if (slash == std::string_view::npos || !IsSiteName(topic.substr(0, slash))) {
        return std::nullopt;
    }
    SitePart result{std::string(topic.substr(0, slash)), "", ""};
    topic.remove_prefix(slash + 1);
    if (topic.starts_with(kDevice) && IsDeviceId(topic.substr(kDevice.size()))) {
        result.part = "device";
        result.id = topic.substr(kDevice.size());
        return result;
    }
    if (std::find(kParts.begin(), kParts.end(), topic) == kParts.end()) {
        return std::nullopt;
    }
    result.part = topic;
    return result;
}

}  // namespace Lanscout
