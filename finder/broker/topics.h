// What the topics of lanscout are called, and which of them are well-formed. A name that comes from
// a device, a user or a broker becomes part of a topic only when it is one of these.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "finder/device/device.h"

namespace Lanscout {

inline constexpr std::size_t kLongestSiteName = 64;
inline constexpr std::size_t kLongestDeviceId = 96;

// Letters, digits, dots, dashes and underscores and whatever else UTF-8 has, but no white space,
// nothing that cannot be shown and nothing that MQTT reads as something else (/, +, #, $ first).
bool IsSiteName(std::string_view name);

// Of letters, digits, dots, dashes and underscores only.
bool IsDeviceId(std::string_view id);

// Made of characters that a device id has; what had to be changed or cut ends with a number that
// tells it from others that look alike then.
std::string SafeId(std::string_view text);

// A MAC address without its colons, in lower case.
std::string IdOfMac(const std::string& mac);

// "lanscout/SITE/PART"; `part` is "status", "device/ID".
std::string SiteTopic(std::string_view site, std::string_view part);

// A topic of ours taken apart; nothing when it is none.
struct SitePart {
    std::string site;
    std::string part;  // "status", "info", "round", "event", "device"
    std::string id;    // of a device
};
std::optional<SitePart> ParseSiteTopic(std::string_view topic);

}  // namespace Lanscout
