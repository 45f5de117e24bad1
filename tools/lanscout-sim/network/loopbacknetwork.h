// A network of sockets on addresses of 127.0.0.0/8.
#pragma once

#include <map>
#include <vector>

#include "tools/lanscout-sim/network/capture.h"
#include "tools/lanscout-sim/network/descriptor.h"
#include "tools/lanscout-sim/network/host.h"
#include "tools/lanscout-sim/network/network.h"

namespace lansim {

// Every host is an address of 127.0.0.0/8 with a socket at each of its UDP ports, and one more
// socket a port hears what is multicast on lo. Needs no privileges. There are no MACs and no ARP.
class LoopbackNetwork : public Network {
public:
    // Throws SetupError, naming who has the port when another process does.
    LoopbackNetwork(const std::vector<SimulatedHost>& hosts, Capture* capture);

    void SetHosts(const std::vector<SimulatedHost>& hosts) override;
    int Descriptor() const override { return m_ready.Get(); }
    void Receive(const DatagramHandler& handler) override;
    SendResult Send(const Datagram& datagram) override;

private:
    void Listen(const Endpoint& at, bool isGroup);
    void ReceiveAt(int fd, const Endpoint& at, const DatagramHandler& handler);
    void Record(const Datagram& datagram);

    Capture* m_capture;
    lansim::Descriptor m_ready;
    std::map<Endpoint, lansim::Descriptor> m_sockets;
    std::map<int, Endpoint> m_endpoints;
    std::map<IpAddress, Mac> m_macs;
    std::uint16_t m_nextIpId = 1;
};

}  // namespace lansim
