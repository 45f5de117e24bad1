// A simulated host as the network sees it: addresses, and how it speaks ARP.
#pragma once

#include <set>

#include "tools/lanscout-sim/network/address.h"

namespace lansim {

// One address of a host. A camera and a UPnP device may be one host. Several hosts may claim one IP
// address, each with a MAC address of its own, as two cameras with their factory's setting do.
struct SimulatedHost {
    IpAddress ip;
    Mac mac{};
    bool answersArp = true;
    bool asksArp = true;
    std::set<std::uint16_t> udpPorts;
};

}  // namespace lansim
