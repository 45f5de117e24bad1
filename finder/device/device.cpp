#include "finder/device/device.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

namespace Lanscout {
namespace {

bool EqualIgnoringCase(const std::string& a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.c_str(), b.data(), b.size()) == 0;
}

// Digits, and what a number, a version, a MAC address or an empty text has beside them.
bool IsNumberOrMac(const std::string& text) {
    const bool hex = std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return std::isxdigit(c) != 0 || c == ':' || c == '-' || c == '.';
    });
    const auto digits = std::count_if(text.begin(), text.end(),
                                      [](unsigned char c) { return std::isxdigit(c) != 0; });
    const bool decimal = std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return std::isdigit(c) != 0 || c == '.' || c == '-';
    });
    return decimal || (hex && digits == 12);
}

bool SaysLittle(const std::string& text) {
    constexpr std::array<std::string_view, 8> kGeneral{"MODEL",
                                                       "IPCamera",
                                                       "IP Camera",
                                                       "Camera",
                                                       "IPC-MODEL",
                                                       "Unknown",
                                                       "NetworkVideoTransmitter",
                                                       "Network Camera"};
    return IsNumberOrMac(text) ||
           std::any_of(kGeneral.begin(), kGeneral.end(),
                       [&](std::string_view general) { return EqualIgnoringCase(text, general); });
}

}  // namespace

const char* KindText(Kind kind) {
    switch (kind) {
        case Kind::Camera:
            return "camera";
        case Kind::Other:
            return "other";
        case Kind::Unknown:
            break;
    }
    return "unknown";
}

const char* ReachText(Reach reach) {
    switch (reach) {
        case Reach::Local:
            return "local";
        case Reach::Foreign:
            return "foreign";
        case Reach::Routed:
            return "routed";
        case Reach::Unknown:
            break;
    }
    return "";
}

std::string ProtocolsText(const Protocols& protocols) {
    if (protocols.onvif && protocols.upnp) {
        return "onvif,upnp";
    }
    if (protocols.onvif) {
        return "onvif";
    }
    return protocols.upnp ? "upnp" : "";
}

std::string ShownAddress(const Device& device) {
    return device.ip.empty() && !device.ipv6.empty() ? device.ipv6.front() : device.ip;
}

const std::string& ShownMaker(const Device& device) {
    return device.maker.empty() ? device.macMaker : device.maker;
}

const std::string& ShownModel(const Device& device) {
    return SaysLittle(device.hardware) && !device.model.empty() ? device.model : device.hardware;
}

std::string ShownMac(const Device& device) {
    if (!device.mac.empty() || device.claimedMac.empty()) {
        return device.mac;
    }
    return "(" + device.claimedMac + ")";
}

bool IsUnconfigured(const Device& device) {
    return std::any_of(
        device.profiles.begin(), device.profiles.end(),
        [](const std::string& profile) { return EqualIgnoringCase(profile, "Q/FactoryDefault"); });
}

}  // namespace Lanscout
