// What a UPnP root device reads and says in SSDP.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "tools/lanscout-sim/upnp/upnpdevice.h"

namespace lansim {

// For how long a searcher may believe a notice; a device repeats it before half of that is over.
inline constexpr int kMaxAgeSeconds = 1800;

// An M-SEARCH request (UPnP Device Architecture 1.0, 1.2.2).
struct SsdpSearch {
    std::string target;          // ST
    int longestWaitSeconds = 1;  // MX, 0 to 120
};

// Why a datagram at SSDP's port is not answered.
enum class SsdpError {
    OtherMessage,  // a notice, an answer, or no SSDP at all
    NoMan,         // MAN is not "ssdp:discover"
    NoTarget,
    NoHost,
    WrongHost,  // a multicast search that names another group
    NoWait,     // a multicast search without MX
    WrongWait,  // MX is no number
};
std::string_view NameOf(SsdpError error);

enum class SsdpRules {
    Multicast,  // HOST is the group, MX a number
    Unicast,    // HOST is there; nobody else answers, so MX may be missing
    Lenient,    // neither is asked for
};

// Reads one datagram, whoever sent it.
std::variant<SsdpSearch, SsdpError> ParseSearch(std::string_view bytes,
                                                SsdpRules rules = SsdpRules::Multicast);

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
