// What the tool knows of one device, and where it was looked for.
#pragma once

#include <string>
#include <vector>

namespace Lanscout {

enum class Protocol { Onvif, Upnp };

// Ordered by what wins when two sources disagree: who answers as a camera is one.
enum class Kind { Unknown, Other, Camera };

// One local address that is searched, and the interface that carries it (empty if none does).
struct Target {
    std::string interface;
    std::string address;

    bool operator==(const Target&) const = default;
};

// Texts are valid UTF-8 and otherwise whatever the device said; an empty text means unknown.
struct Device {
    std::string ip;
    std::vector<std::string> otherIps;  // the same device's addresses on other interfaces
    int port = 0;                       // as the device named it: any 32-bit value
    bool onvif = false;
    bool upnp = false;
    Kind kind = Kind::Unknown;
    std::string hardware;  // from the ONVIF scopes
    std::string mac;       // "00:1B:FF:01:02:03"
    std::string macMaker;  // whom the MAC address was assigned to
    std::string name;      // from the UPnP description, as the following
    std::string maker;
    std::string model;
    std::string page;  // absolute http or https URL
    std::string deviceType;
    std::string udn;
    std::string location;  // where the description stands
    std::vector<Target> seenVia;
    std::string firstSeen;  // ISO 8601, UTC

    bool operator==(const Device&) const = default;
};

const char* KindText(Kind kind);
const char* ProtocolText(Protocol protocol);

// "onvif", "upnp" or "onvif,upnp".
std::string ProtocolsText(const Device& device);

// The maker to show: the description's, or else the MAC address's.
const std::string& ShownMaker(const Device& device);

}  // namespace Lanscout
