// A network behind a tap device, in which each host has a MAC address.
#pragma once

#include <map>
#include <vector>

#include "tools/lanscout-sim/base/timepoint.h"
#include "tools/lanscout-sim/network/capture.h"
#include "tools/lanscout-sim/network/descriptor.h"
#include "tools/lanscout-sim/network/frames.h"
#include "tools/lanscout-sim/network/host.h"
#include "tools/lanscout-sim/network/network.h"
#include "tools/lanscout-sim/network/reassembly.h"

namespace lansim {

struct TapCounts {
    std::uint64_t framesHeard = 0;
    std::uint64_t framesSent = 0;
    std::uint64_t arpRequestsHeard = 0;
    std::uint64_t arpRepliesSent = 0;
    std::uint64_t arpRequestsSent = 0;
    std::uint64_t echoRepliesSent = 0;
    std::uint64_t tcpPacketsHeard = 0;
    std::uint64_t tcpPacketsSent = 0;
};

// All hosts behind one tap, each with its own IPv4 and Ethernet address.
class TapNetwork : public Network {
public:
    // Makes the tap in the current network namespace, with the searcher's address and the
    // multicast route, and with a link-local IPv6 address when a host has one. `capture` may be
    // null; it stays the caller's. Throws SetupError.
    TapNetwork(const std::string& device, const Subnet& searcher,
               const std::vector<SimulatedHost>& hosts, Capture* capture);

    // TCP to and from the hosts goes through this tun device from now on.
    void Attach(lansim::Descriptor peerStack);

    int Descriptor() const override { return m_ready.Get(); }
    void Receive(const DatagramHandler& handler) override;
    SendResult Send(const Datagram& datagram) override;

    const TapCounts& Counts() const { return m_counts; }

private:
    struct Host {
        Mac mac{};
        bool answersArp = true;
        bool asksArp = true;
        std::map<IpAddress, TimePoint> asked;  // whose MAC it has asked for, and when
    };

    void Watch(int fd);
    void Handle(std::string_view frame, const DatagramHandler& handler);
    void HandleWhole(std::string_view frame, const DatagramHandler& handler);
    void Handle(const ArpRequest& request);
    void Handle(const NeighbourSolicit& question);
    void Handle(const EchoRequest& request);
    void Handle(const TcpPacket& packet);
    void Handle(const Datagram& datagram, const DatagramHandler& handler);
    void PassOn(std::string_view packet);
    // The host at the address that has the MAC address; with no MAC address, the first one there.
    Host* Find(const IpAddress& ip, const Mac& mac);
    SendResult AskForMac(Host& host, const IpAddress& own, const IpAddress& peer);
    SendResult Write(std::string_view frame);

    lansim::Descriptor m_ready;
    lansim::Descriptor m_tap;
    lansim::Descriptor m_peerStack;
    Capture* m_capture;
    TapCounts m_counts;
    Reassembly m_reassembly;
    std::map<IpAddress, std::vector<Host>> m_hosts;
    std::map<IpAddress, Mac> m_peers;        // whom the hosts have heard
    std::map<IpAddress, Mac> m_connectedAs;  // which host of a shared address TCP last went to
    std::uint16_t m_nextIpId = 1;
};

}  // namespace lansim
