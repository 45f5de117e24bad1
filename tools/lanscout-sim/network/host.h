// A simulated host as the network sees it: addresses, and how it speaks ARP.
#pragma once

#include <vector>

#include "tools/lanscout-sim/network/address.h"

namespace lansim {

// One address of a host. A camera and a UPnP device may be one host. Several hosts may claim one IP
// address, each with a MAC address of its own, as two cameras with their factory's setting do.
struct SimulatedHost {
    IpAddress ip;
    Mac mac{};
    bool answersArp = true;
    bool asksArp = true;
    std::vector<std::uint16_t> udpPorts{};  // it refuses everything at other ports
    std::vector<std::uint16_t> tcpPorts{};
};

}  // namespace lansim
