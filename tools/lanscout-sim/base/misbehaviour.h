// The ways in which a device can misbehave: their names, meanings, and shares of a population.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lansim {

enum class Misbehaviour {
    NotXml,
    CutOff,
    Oversize,
    ZeroByte,
    NoXAddrs,
    NoScopes,
    SeveralXAddrs,
    Ipv6XAddrs,
    HttpsXAddrs,
    LineBreakXAddrs,
    TwoProbeMatches,
    SoapFault,
    EntityBomb,
    ControlCharacters,
    Duplicate,
    EmptyDatagram,
    NoArp,
    QuietArp,
    Silent,
    BadUtf8,
    Latin1,
    Utf16,
    WrongRelatesTo,
    NulTail,
    EmptyXAddrs,
    HugeXAddrs,
    NoMatch,
    SameUuid,
    EmptyAlone,
    ZeroLength,
    DeviceOnly,
    UpnpLocationNoPath,
    UpnpLocationNoPort,
    UpnpLocationOtherSubnet,
    UpnpLocationLoopback,
    UpnpLocationIpv6,
    UpnpLocationNoUrl,
    UpnpDescriptionEmpty,
    UpnpDescriptionHuge,
    UpnpDescriptionSlow,
    UpnpDescriptionNotUtf8,
    UpnpDescriptionNotXml,
    UpnpDescriptionChunked,
    UpnpDescriptionNotFound,
    UpnpDescriptionRedirect,
    UpnpDescriptionLyingLength,
    UpnpDescriptionReset,
    UpnpMarkup,
    UpnpFlood,
    UpnpNoMaxAge,
    UpnpAdvertiseOnly,
    UpnpChatty,
};

struct MisbehaviourName {
    Misbehaviour kind;
    std::string_view name;
    std::string_view meaning;
};

const std::vector<MisbehaviourName>& MisbehaviourNames();
std::string_view NameOf(Misbehaviour kind);
// Whether it is a UPnP device that misbehaves so, and not a camera.
bool IsUpnp(Misbehaviour kind);
std::optional<Misbehaviour> MisbehaviourNamed(std::string_view name);

// A part of all generated cameras, or UPnP devices, that misbehaves in one way.
struct MisbehaviourShare {
    Misbehaviour kind;
    double share = 0;  // 0 to 1
};

// KIND=SHARE, SHARE being a fraction (0.1) or a percentage (10%).
// On failure the message says what is wrong and what would be right.
struct ShareResult {
    std::optional<MisbehaviourShare> value;
    std::string error;
};
ShareResult ParseMisbehaviourShare(const std::string& text);

}  // namespace lansim
