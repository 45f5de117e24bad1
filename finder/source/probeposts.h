// Where the finder's Probes leave this machine, and where the replies to them arrive.
#pragma once

#include <functional>
#include <vector>

#include "finder/machine/interfaces.h"
#include "finder/source/datagrams.h"
#include "finder/source/source.h"
#include "finder/source/subnet.h"

namespace Lanscout {

struct ProbePost {
    Target target;  // empty: of no particular address, for Probes to single ones
    Descriptor socket;
    Endpoint group;                    // of no length where the target is empty
    std::vector<Subnet> subnets;       // that are on this wire; of every one where it is empty
    Reach elsewhere = Reach::Foreign;  // how who is in none of them is reached
};

// One for each IPv4 address, one for each interface with a link-local IPv6 address, and one for
// single addresses, as the request wants them. What cannot be opened is told.
std::vector<ProbePost> OpenProbePosts(const Job& job, const std::vector<LocalAddress>& local,
                                      const std::function<void(const FailureMessage&)>& tell);

// The subnets of an interface; without a name of all of them.
std::vector<Subnet> SubnetsOf(const std::vector<LocalAddress>& local, const std::string& interface);

}  // namespace Lanscout
