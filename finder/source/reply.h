// A reply to a Probe, read once (WS-Discovery, April 2005, 5.3).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Lanscout {

// The largest datagram that UDP can carry, rounded up; no reply is cut.
inline constexpr std::size_t kLongestReplyBytes = 65535;

// What one ProbeMatch says of a device, bounded in numbers and lengths, everything else as sent.
struct ProbeMatch {
    std::string endpoint;             // the endpoint reference
    std::vector<std::string> types;   // "{namespace}name"; as sent where the prefix means nothing
    std::vector<std::string> scopes;  // URIs
    std::vector<std::string> xaddrs;  // URIs
    int metadataVersion = 0;
};

// Every ProbeMatch of the reply; none when its ProbeMatches has none. Nothing when it is no such
// message. Whatever cannot be read of it leaves the rest as it is.
std::optional<std::vector<ProbeMatch>> ReadReply(std::string_view reply);

}  // namespace Lanscout
