// Reading a searcher's WS-Discovery message.
#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace lansim {

inline constexpr std::string_view kDiscoveryNs = "http://schemas.xmlsoap.org/ws/2005/04/discovery";
inline constexpr std::string_view kAddressingNs =
    "http://schemas.xmlsoap.org/ws/2004/08/addressing";
inline constexpr std::string_view kOnvifNetworkNs = "http://www.onvif.org/ver10/network/wsdl";
inline constexpr std::string_view kOnvifDeviceNs = "http://www.onvif.org/ver10/device/wsdl";

// A name with the namespace that its prefix stood for.
struct QualifiedName {
    std::string uri;
    std::string local;
    bool operator==(const QualifiedName&) const = default;
};

// A WS-Discovery Probe (2005/04), as far as a device needs it to answer.
struct Probe {
    std::string messageId;
    std::vector<QualifiedName> types;  // none: any type
    std::vector<std::string> scopes;   // none: any scope
    std::string matchBy;               // empty: the default rule
};

enum class ProbeError {
    TooLong,
    Doctype,  // SOAP forbids it, and what it declares could cost without bound
    NotXml,
    NotSoap,
    OtherMessage,  // well-formed SOAP that is no Probe: Hello, Bye, Resolve, a reply
    NoMessageId,
    UnknownPrefix,
};

std::string_view NameOf(ProbeError error);

// Reads one datagram, whoever sent it. Opens nothing, prints nothing, and its time and memory
// are bounded by the datagram's size.
std::variant<Probe, ProbeError> ParseProbe(std::string_view bytes);

}  // namespace lansim
