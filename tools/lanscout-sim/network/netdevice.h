// Making and setting up network devices of the kernel.
#pragma once

#include <optional>
#include <string>

#include "tools/lanscout-sim/network/address.h"
#include "tools/lanscout-sim/network/descriptor.h"
#include "tools/lanscout-sim/network/netlink.h"

namespace lansim {

enum class TunKind { EthernetFrames, IpPackets };

// Makes a tun or tap device in the current network namespace. One read or write of the result
// is one frame or packet, without waiting; closing it removes the device. Throws SetupError.
Descriptor MakeTunDevice(const std::string& name, TunKind kind);

// Sets up a network device of the current namespace. Everything throws SetupError.
class NetDevice {
public:
    explicit NetDevice(std::string name);

    void SetAddress(const Subnet& subnet);
    // Before the device is up: the kernel gives it no IPv6 address of its own accord.
    void LeaveIpv6AddressToMe();
    void SetLinkLocalAddress(const Ipv6& address);
    void SetQueueLength(int frames);
    void Join(const std::string& bridge);
    void SetUp();
    void AddRoute(const Subnet& destination);
    // Packets to the address are the namespace's own, although no device has it.
    void AddLocalRoute(Ipv4 destination);
    // Without this the kernel's own IPv6 messages stand between what is watched.
    void SilenceIpv6() const;
    Mac HardwareAddress();
    // Its first IPv4 address with the network's size; nothing when it has none.
    std::optional<Subnet> Address();

private:
    struct RouteKind {
        unsigned char type;
        unsigned char table;
        unsigned char scope;
    };
    void AddRoute(const Subnet& destination, const RouteKind& kind, const std::string& what);
    void Do(NetlinkMessage& message, const std::string& what);

    std::string m_name;
    unsigned m_index;
    Netlink m_netlink;
};

}  // namespace lansim
