// Reading a searcher's WS-Discovery message.
#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "tools/lanscout-sim/onvif/qualifiedname.h"

namespace lansim {

inline constexpr std::string_view kDiscoveryNs = "http://schemas.xmlsoap.org/ws/2005/04/discovery";
inline constexpr std::string_view kAddressingNs =
    "http://schemas.xmlsoap.org/ws/2004/08/addressing";
// To whom a multicast message goes (WS-Discovery 2005/04, 2.3).
inline constexpr std::string_view kDiscoveryTo = "urn:schemas-xmlsoap-org:ws:2005:04:discovery";
inline constexpr std::string_view kOnvifNetworkNs = "http://www.onvif.org/ver10/network/wsdl";
inline constexpr std::string_view kOnvifDeviceNs = "http://www.onvif.org/ver10/device/wsdl";

enum class RequestKind { Probe, Resolve };

// A Probe or Resolve (WS-Discovery 2005/04), as far as a device needs it to answer.
struct Probe {
    std::string messageId;
    std::vector<QualifiedName> types;  // none: any type
    std::vector<std::string> scopes;   // none: any scope
    std::string matchBy;               // empty: the default rule
    RequestKind kind = RequestKind::Probe;
    std::string endpoint{};  // whom a Resolve asks for
    std::string to{};
};

enum class ProbeError {
    TooLong,
    Doctype,  // SOAP forbids it, and what it declares could cost without bound
    NotXml,
    NotSoap,
    OtherMessage,  // well-formed SOAP that asks for nothing: Hello, Bye, a reply
    NoMessageId,
    UnknownPrefix,
    // A strict device refuses these as well.
    Soap11,
    TrailingBytes,
    NoAction,
    WrongAction,
    NoTo,
    WrongTo,
    RepeatedHeader,
    NotUnderstood,  // a header that must be understood, and is not
    UnknownRule,    // MatchBy
    // It was right, and came before.
    Repeated,
};

std::string_view NameOf(ProbeError error);

enum class Strictness {
    Strict,   // what WS-Discovery asks for
    Lenient,  // a Probe in a SOAP envelope of any version with a MessageID
};

// Reads one datagram, whoever sent it. Opens nothing, prints nothing, and its time and memory
// are bounded by the datagram's size.
std::variant<Probe, ProbeError> ParseProbe(std::string_view bytes,
                                           Strictness strictness = Strictness::Strict);

}  // namespace lansim
