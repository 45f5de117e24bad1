#include "tools/lanscout-sim/base/misbehaviour.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace lansim {

const std::vector<MisbehaviourName>& MisbehaviourNames() {
    using enum Misbehaviour;
    static const std::vector<MisbehaviourName> kNames = {
        {NotXml, "not-xml", "the reply is no XML at all"},
        {CutOff, "cut-off", "the reply ends in its middle"},
        {Oversize, "oversize", "a good reply of more than 4096 bytes, in IP fragments"},
        {ZeroByte, "zero-byte", "a zero byte inside the reply"},
        {NoXAddrs, "no-xaddrs", "no XAddrs element"},
        {NoScopes, "no-scopes", "no Scopes element"},
        {SeveralXAddrs, "several-xaddrs", "three addresses, the first being the camera's own"},
        {Ipv6XAddrs, "ipv6-xaddrs", "an IPv6 literal alone"},
        {HttpsXAddrs, "https-xaddrs", "an https address alone"},
        {LineBreakXAddrs, "line-break-xaddrs", "addresses separated by line breaks"},
        {TwoProbeMatches, "two-probematches", "two ProbeMatch elements, the camera's own first"},
        {SoapFault, "soap-fault", "a SOAP Fault instead of ProbeMatches"},
        {EntityBomb, "entity-bomb", "a DOCTYPE with nested entities before a good reply"},
        {ControlCharacters, "control-characters",
         "a terminal's escape sequence and HTML, percent-encoded, in the hardware scope"},
        {Duplicate, "duplicate", "each reply is sent three times"},
        {EmptyDatagram, "empty-datagram", "an empty datagram before each reply"},
        {NoArp, "no-arp", "neither asks nor answers ARP"},
        {QuietArp, "quiet-arp", "answers ARP, but never asks, so that the searcher learns no MAC"},
        {Silent, "silent", "has an address and answers no Probe"},
        {BadUtf8, "bad-utf8", "bytes that are no UTF-8, in a reply that says it is"},
        {Latin1, "latin-1", "a reply in ISO-8859-1, and says so"},
        {Utf16, "utf-16", "a reply in UTF-16 with a byte order mark"},
        {WrongRelatesTo, "wrong-relates-to", "the reply relates to a message that nobody sent"},
        {NulTail, "nul-tail", "four zero bytes behind a good reply"},
        {EmptyXAddrs, "empty-xaddrs", "an XAddrs element with nothing in it"},
        {HugeXAddrs, "huge-xaddrs", "600 addresses, the first being the camera's own"},
        {NoMatch, "no-match", "ProbeMatches without a ProbeMatch"},
        {SameUuid, "same-uuid", "one endpoint reference for all that misbehave so, as clones have"},
        {EmptyAlone, "empty-alone", "an empty datagram instead of each reply"},
        {ZeroLength, "zero-length", "fifty empty datagrams before each reply"},
        {DeviceOnly, "device-only", "is a tds:Device and no video transmitter, as a printer"},
        {UpnpLocationNoPath, "upnp-location-no-path", "LOCATION ends with the port"},
        {UpnpLocationNoPort, "upnp-location-no-port", "LOCATION means port 80, and is right"},
        {UpnpLocationOtherSubnet, "upnp-location-other-subnet", "LOCATION is 203.0.113.7"},
        {UpnpLocationLoopback, "upnp-location-loopback", "LOCATION is 127.0.0.1"},
        {UpnpLocationIpv6, "upnp-location-ipv6", "LOCATION is an IPv6 literal"},
        {UpnpLocationNoUrl, "upnp-location-no-url", "LOCATION is no URL"},
        {UpnpDescriptionEmpty, "upnp-empty", "the description has no bytes"},
        {UpnpDescriptionHuge, "upnp-huge", "the description has 64 MiB"},
        {UpnpDescriptionSlow, "upnp-slow", "the description comes at a byte a second"},
        {UpnpDescriptionNotUtf8, "upnp-not-utf8", "the description is not the UTF-8 it says"},
        {UpnpDescriptionNotXml, "upnp-not-xml", "the description is no XML"},
        {UpnpDescriptionChunked, "upnp-chunked", "a good description in chunks"},
        {UpnpDescriptionNotFound, "upnp-404", "the description is not found"},
        {UpnpDescriptionRedirect, "upnp-redirect", "the description redirects to 203.0.113.7"},
        {UpnpDescriptionLyingLength, "upnp-lying-length",
         "Content-Length says 2147483647, then comes less"},
        {UpnpDescriptionReset, "upnp-reset", "the connection is reset in the description's middle"},
        {UpnpMarkup, "upnp-markup", "HTML and escape sequences in the friendly name"},
        {UpnpFlood, "upnp-flood", "each search is answered with 200 different LOCATIONs"},
        {UpnpNoMaxAge, "upnp-no-max-age", "no CACHE-CONTROL, so that searchers drop it"},
        {UpnpAdvertiseOnly, "upnp-advertise-only", "advertises, but answers no search"},
        {UpnpChatty, "upnp-chatty", "advertises every second beside answering searches"},
    };
    return kNames;
}

std::string_view NameOf(Misbehaviour kind) {
    const auto& names = MisbehaviourNames();
    return std::ranges::find(names, kind, &MisbehaviourName::kind)->name;
}

bool IsUpnp(Misbehaviour kind) {
    return NameOf(kind).starts_with("upnp-");
}

std::optional<Misbehaviour> MisbehaviourNamed(std::string_view name) {
    const auto& names = MisbehaviourNames();
    const auto found = std::ranges::find(names, name, &MisbehaviourName::name);
    if (found == names.end()) {
        return std::nullopt;
    }
    return found->kind;
}

ShareResult ParseMisbehaviourShare(const std::string& text) {
    const auto equals = text.find('=');
    const auto kind = MisbehaviourNamed(std::string_view(text).substr(0, equals));
    if (!kind) {
        return {{}, fmt::format("\"{}\" names no misbehaviour; --help lists them", text)};
    }
    if (equals == std::string::npos) {
        return {{}, fmt::format("\"{0}\" lacks its share; write {0}=10% or {0}=0.1", text)};
    }

    double share = -1;
    const char* end = text.data() + text.size();
    auto [rest, error] = std::from_chars(text.data() + equals + 1, end, share);
    if (error == std::errc{} && rest != end && *rest == '%') {
        share /= 100;
        ++rest;
    }
    if (error != std::errc{} || rest != end || !(share >= 0 && share <= 1)) {
        return {{}, fmt::format("the share in \"{}\" is not 0 to 1 or 0% to 100%", text)};
    }
    return {MisbehaviourShare{*kind, share}, {}};
}

}  // namespace lansim
