// A simulated host as the network sees it: addresses, and how it speaks ARP.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <initializer_list>
#include <span>

#include "tools/lanscout-sim/network/address.h"

namespace lansim {

// The few ports at which a host listens; zeros behind them. Of thousands of hosts that is less to
// keep than a list.
class Ports {
public:
    Ports(std::initializer_list<std::uint16_t> ports = {}) {
        for (const auto port : ports) {
            Add(port);
        }
    }
    void Add(std::uint16_t port) {
        if (!Has(port)) {
            m_ports.at(m_count++) = port;
        }
    }
    std::span<const std::uint16_t> All() const { return {m_ports.data(), m_count}; }
    bool Has(std::uint16_t port) const { return std::ranges::find(All(), port) != All().end(); }

private:
    std::array<std::uint16_t, 7> m_ports{};
    std::uint16_t m_count = 0;
};

// One address of a host. A camera and a UPnP device may be one host. Several hosts may claim one IP
// address, each with a MAC address of its own, as two cameras with their factory's setting do.
struct SimulatedHost {
    IpAddress ip;
    Mac mac{};
    bool answersArp = true;
    bool asksArp = true;
    Ports udpPorts{};  // it refuses everything at other ports
    Ports tcpPorts{};
};

}  // namespace lansim
