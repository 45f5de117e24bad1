// What is known of one device, and where it was looked for.
#pragma once

#include <string>
#include <vector>

namespace Lanscout {

// Ordered by what wins when two sources disagree: who answers as a camera is one.
enum class Kind { Unknown, Other, Camera };

// How the device is reached from where it was heard. Ordered by what wins: who is in a subnet of
// ours is local, however else it was heard.
enum class Reach {
    Unknown,
    Routed,   // behind a router: asked at its address, not by multicast
    Foreign,  // on this wire, with an address of another subnet
    Local,    // in a subnet of the interface
};

// How the device was found.
struct Protocols {
    bool onvif = false;
    bool upnp = false;

    bool operator==(const Protocols&) const = default;
};

// One local address that is searched, and the interface that carries it (empty if none does).
struct Target {
    std::string interface;
    std::string address;

    auto operator<=>(const Target&) const = default;
};

// Texts are valid UTF-8 and otherwise whatever the device said. An empty text or list, a zero and
// Unknown mean that it is not known. finder/device/fieldlist.cpp says what each member is called,
// how it is shown and how two sightings of it merge.
struct Device {
    std::string ip;                     // IPv4, dotted decimal; empty when only IPv6 was heard
    std::vector<std::string> otherIps;  // further IPv4 addresses of the same device
    std::vector<std::string> ipv6;      // with the zone where they are link-local: fe80::1%eth0
    int port = 0;                       // of the ONVIF device service, as named: any 32-bit value
    Protocols protocols;
    Kind kind = Kind::Unknown;
    std::string hardware;               // from the ONVIF scopes, as the following two
    std::string name;                   // or else from the UPnP description
    std::string location;               // the place
    std::string maker;                  // from the UPnP description or the scopes
    std::string model;                  // from the UPnP description
    std::string serial;                 // from the scopes or the UPnP description
    std::string firmware;               // from the scopes
    std::vector<std::string> profiles;  // ONVIF profiles of the scopes: "Streaming", "T"
    std::vector<std::string> types;     // of the reply, each as {namespace}name
    std::vector<std::string> scopes;    // of the reply, as sent
    std::vector<std::string> xaddrs;    // of the reply, as sent
    std::string uuid;                   // the endpoint reference, as sent
    int metadataVersion = 0;            // of the reply
    std::string mac;                    // "00:1B:FF:01:02:03", as the network says
    std::string macMaker;               // whom the MAC address was assigned to
    std::string claimedMac;             // as the scopes say
    std::string page;                   // absolute http or https URL for a browser
    std::string deviceType;             // UPnP
    std::string udn;                    // UPnP
    std::string descriptionUrl;         // UPnP: where the description stands
    Reach reach = Reach::Unknown;
    bool sharedAddress = false;  // another device answers at the same address
    std::string firstSeen;       // ISO 8601, UTC
    std::string lastSeen;        // ISO 8601, UTC
    std::vector<Target> seenVia;
    std::string site;  // whose lanscout published it; empty: found by this one

    bool operator==(const Device&) const = default;
};

const char* KindText(Kind kind);
const char* ReachText(Reach reach);  // empty for Unknown

// "onvif", "upnp" or "onvif,upnp".
std::string ProtocolsText(const Protocols& protocols);

// The address to show: the IPv4 one, or else the first IPv6 one.
std::string ShownAddress(const Device& device);

// The maker to show: the device's own word, or else whom its MAC address was assigned to.
const std::string& ShownMaker(const Device& device);

// The model to show: of hardware and model the one that says more. A hardware of "MODEL",
// "IPCamera", a number, a MAC address or nothing does not say much.
const std::string& ShownModel(const Device& device);

// The MAC address to show: the network's, or else the device's claim in brackets.
std::string ShownMac(const Device& device);

// Whether an ONVIF device says that nobody has set it up yet (ONVIF Profile Q).
bool IsUnconfigured(const Device& device);

}  // namespace Lanscout
