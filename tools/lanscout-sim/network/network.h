// What carries datagrams between the searcher and the devices.
#pragma once

#include <functional>
#include <vector>

#include "tools/lanscout-sim/network/address.h"
#include "tools/lanscout-sim/network/host.h"

namespace lansim {

inline constexpr std::uint16_t kDiscoveryPort = 3702;  // WS-Discovery
inline constexpr std::uint16_t kSsdpPort = 1900;
// Both protocols use the same group.
inline constexpr Ipv4 kMulticastGroup{0xEFFFFFFA};  // 239.255.255.250
// WS-Discovery's group on one link, ff02::c.
inline constexpr Ipv6 kMulticastGroup6{{0xFF, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x0C}};

using DatagramHandler = std::function<void(const Datagram&)>;

enum class SendResult { Sent, TryAgain, Failed };

// What carries datagrams between the searcher and the simulated devices. One thread uses it.
class Network {
public:
    Network() = default;
    Network(const Network&) = delete;
    Network& operator=(const Network&) = delete;
    virtual ~Network() = default;

    // Who is there from now on. Throws SetupError when the network cannot have somebody.
    virtual void SetHosts(const std::vector<SimulatedHost>&) {}
    // Becomes readable when Receive has something to do.
    virtual int Descriptor() const = 0;
    // Hands on what has come for the devices, without waiting.
    virtual void Receive(const DatagramHandler& handler) = 0;
    // TryAgain: nothing of it was sent and a queue is full; worth another attempt a little later.
    virtual SendResult Send(const Datagram& datagram) = 0;
};

}  // namespace lansim
