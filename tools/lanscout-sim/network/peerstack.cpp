#include "tools/lanscout-sim/network/peerstack.h"

#include <fmt/format.h>

#include "tools/lanscout-sim/network/netdevice.h"
#include "tools/lanscout-sim/network/netns.h"

namespace lansim {

constexpr const char* kDevice = "hosts0";

Descriptor MakePeerStack(const Subnet& network, const std::set<Ipv4>& addresses,
                         const std::function<void()>& setUp) {
    // Left again at the end of this function; tun device and sockets keep it alive.
    const NetworkNamespace inside("");
    Descriptor packets = MakeTunDevice(kDevice, TunKind::IpPackets);
    NetDevice device(kDevice);
    device.SilenceIpv6();
    device.SetUp();
    std::size_t number = 0;
    for (const auto address : addresses) {
        NetDevice(fmt::format("{}:{}", kDevice, number++)).SetAddress({address, 32});
    }
    device.AddRoute(network);
    setUp();
    return packets;
}

}  // namespace lansim
