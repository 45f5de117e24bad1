// SSDP messages: reading a search, writing answers and notices.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/lanscout-sim/upnp/upnpdevice.h"

namespace lansim {

// An M-SEARCH request (UPnP Device Architecture 1.0, 1.2.2).
struct SsdpSearch {
    std::string target;          // ST
    int longestWaitSeconds = 1;  // MX, 1 to 120
};

// Reads one datagram, whoever sent it; nothing when it is no M-SEARCH.
std::optional<SsdpSearch> ParseSearch(std::string_view bytes);

// A device speaks once for each of these: itself as a root device, its uuid, and its type.
struct SsdpIdentity {
    std::string type;  // ST or NT
    std::string usn;
};
std::vector<SsdpIdentity> IdentitiesOf(const UpnpDevice& device);
// Those of them that the target asks for.
std::vector<SsdpIdentity> IdentitiesFor(const UpnpDevice& device, const std::string& target);

std::string SearchAnswer(const UpnpDevice& device, const SsdpIdentity& identity,
                         const std::string& location);
std::string AliveNotice(const UpnpDevice& device, const SsdpIdentity& identity,
                        const std::string& location);
std::string ByebyeNotice(const SsdpIdentity& identity);

}  // namespace lansim
