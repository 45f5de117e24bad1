#include "finder/source/scopes.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

#include "finder/text/safetext.h"

namespace Lanscout {
namespace {

std::string Lower(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

// What stands behind the authority: "name/Gate%202" of "onvif://www.onvif.org/name/Gate%202".
std::string_view PathOf(std::string_view scope) {
    const auto scheme = scope.find("://");
    if (scheme != std::string_view::npos) {
        const auto path = scope.find('/', scheme + 3);
        scope = path == std::string_view::npos ? "" : scope.substr(path + 1);
    }
    while (!scope.empty() && scope.back() == '/') {
        scope.remove_suffix(1);
    }
    return scope;
}

struct Parted {
    std::string category;  // in lower case
    std::string_view value;
};

Parted PartedAt(std::string_view path) {
    const auto slash = path.find('/');
    return slash == std::string_view::npos
               ? Parted{Lower(path), ""}
               : Parted{Lower(path.substr(0, slash)), path.substr(slash + 1)};
}

std::string Decoded(std::string_view value) {
    return ToKeptText(DecodePercent(value));
}

template <std::size_t N>
bool IsOneOf(const std::array<std::string_view, N>& names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

void TakeFirst(std::string& known, std::string_view value) {
    if (known.empty()) {
        known = Decoded(value);
    }
}

// "country/china" and "city/hangzhou" make "china, hangzhou": what kind of place it is, is told
// by its name.
void TakeLocation(std::string& known, std::string_view value) {
    constexpr std::array<std::string_view, 8> kKinds{"country", "state",    "city",  "town",
                                                     "street",  "building", "floor", "room"};
    const Parted parted = PartedAt(value);
    const std::string place =
        Decoded(IsOneOf(kKinds, parted.category) && !parted.value.empty() ? parted.value : value);
    if (!place.empty()) {
        known = ToKeptText(known.empty() ? place : known + ", " + place);
    }
}

void TakeType(Kind& kind, std::string_view value) {
    constexpr std::array<std::string_view, 3> kCameras{"network_video_transmitter",
                                                       "networkvideotransmitter", "video_encoder"};
    if (IsOneOf(kCameras, Lower(value))) {
        kind = Kind::Camera;
    }
}

// The profiles but for those of doors and locks are those of cameras.
void TakeProfile(Device& device, std::string_view value) {
    constexpr std::array<std::string_view, 3> kAccessControl{"a", "c", "d"};
    const std::string profile = Decoded(value);
    if (profile.empty()) {
        return;
    }
    if (std::find(device.profiles.begin(), device.profiles.end(), profile) ==
        device.profiles.end()) {
        device.profiles.push_back(profile);
    }
    if (!IsOneOf(kAccessControl, Lower(profile))) {
        device.kind = Kind::Camera;
    }
}

// ONVIF's own categories, at the head of the path; false for another one.
bool TakeStandard(Device& device, const Parted& scope) {
    if (scope.category == "name") {
        TakeFirst(device.name, scope.value);
    } else if (scope.category == "hardware") {
        TakeFirst(device.hardware, scope.value);
    } else if (scope.category == "location") {
        TakeLocation(device.location, scope.value);
    } else if (scope.category == "profile") {
        TakeProfile(device, scope.value);
    } else if (scope.category == "type") {
        TakeType(device.kind, scope.value);
    } else {
        return false;
    }
    return true;
}

// What makers add, often below a folder of their own ("acc/mac/...").
void TakeMakers(Device& device, const Parted& scope) {
    constexpr std::array<std::string_view, 3> kMac{"mac", "macaddr", "macaddress"};
    constexpr std::array<std::string_view, 4> kSerial{"serial", "serialnumber", "serial_number",
                                                      "sn"};
    constexpr std::array<std::string_view, 4> kFirmware{"firmware", "firmwareversion",
                                                        "firmware_version", "fw"};
    constexpr std::array<std::string_view, 5> kMaker{"manufacturer", "manufacture", "maker",
                                                     "vendor", "brand"};
    if (IsOneOf(kMac, scope.category) && device.claimedMac.empty()) {
        device.claimedMac = MacFrom(Decoded(scope.value));
    } else if (IsOneOf(kSerial, scope.category)) {
        TakeFirst(device.serial, scope.value);
    } else if (IsOneOf(kFirmware, scope.category)) {
        TakeFirst(device.firmware, scope.value);
    } else if (IsOneOf(kMaker, scope.category)) {
        TakeFirst(device.maker, scope.value);
    }
}

}  // namespace

std::string MacFrom(const std::string& text) {
    constexpr std::size_t kDigits = 12;
    const char separator = text.size() > 2 && (text[2] == ':' || text[2] == '-') ? text[2] : '\0';
    std::string digits;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (separator != '\0' && at % 3 == 2) {
            if (text[at] != separator) {
                return {};
            }
        } else if (std::isxdigit(static_cast<unsigned char>(text[at])) != 0) {
            digits += static_cast<char>(std::toupper(static_cast<unsigned char>(text[at])));
        } else {
            return {};
        }
    }
    const bool whole = digits.size() == kDigits && (separator == '\0' || text.size() == 17);
    if (!whole || digits == std::string(kDigits, '0') || digits == std::string(kDigits, 'F')) {
        return {};
    }
    for (std::size_t at = 2; at < 17; at += 3) {
        digits.insert(at, ":");
    }
    return digits;
}

Device ReadScopes(const std::vector<std::string>& scopes) {
    constexpr int kDeepest = 3;  // folders of a maker's own above a category
    Device device;
    for (const std::string& scope : scopes) {
        Parted parted = PartedAt(PathOf(scope));
        if (TakeStandard(device, parted)) {
            continue;
        }
        for (int depth = 0; depth < kDeepest && !parted.value.empty(); ++depth) {
            TakeMakers(device, parted);
            parted = PartedAt(parted.value);
        }
    }
    return device;
}

}  // namespace Lanscout
