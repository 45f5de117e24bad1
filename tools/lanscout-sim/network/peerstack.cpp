#include "tools/lanscout-sim/network/peerstack.h"

#include "tools/lanscout-sim/network/netdevice.h"
#include "tools/lanscout-sim/network/netns.h"

namespace lansim {

constexpr const char* kDevice = "hosts0";
constexpr Subnet kEverywhere{};

Descriptor MakePeerStack(const std::set<Ipv4>& addresses, const std::function<void()>& setUp) {
    // Left again at the end of this function; tun device and sockets keep it alive.
    const NetworkNamespace inside("");
    Descriptor packets = MakeTunDevice(kDevice, TunKind::IpPackets);
    NetDevice device(kDevice);
    device.SilenceIpv6();
    device.SetUp();
    NetDevice loopback("lo");
    loopback.SetUp();
    for (const auto address : addresses) {
        loopback.AddLocalRoute(address);
    }
    device.AddRoute(kEverywhere);
    setUp();
    return packets;
}

}  // namespace lansim
