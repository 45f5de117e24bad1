#pragma once

#include <set>
#include <vector>

#include "tools/lanscout-sim/network/address.h"
#include "tools/lanscout-sim/population.h"

namespace lansim {

// A simulated host as the network sees it; a camera and a UPnP device may be one host.
struct SimulatedHost {
    Ipv4 ip;
    Mac mac{};
    bool answersArp = true;
    bool asksArp = true;
    std::set<std::uint16_t> udpPorts;
};

// The hosts that the devices stand on.
std::vector<SimulatedHost> HostsOf(const Population& population);

}  // namespace lansim
