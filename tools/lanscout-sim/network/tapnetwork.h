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
    std::uint64_t refusalsSent = 0;  // of what came to a port where nothing listens
};

// The tap device that leads to the hosts.
struct TapDevice {
    lansim::Descriptor frames;
    std::string name;
    // Whether the searcher sits at this device, which then gets the searcher's address and the
    // multicast route; else it is a port of a bridge and gets neither.
    bool isSearchers = true;
};

// All hosts behind one tap, each with its own IPv4 and Ethernet address.
class TapNetwork : public Network {
public:
    // Sets the device of the current network namespace up, with a link-local IPv6 address when a
    // host has one. `capture` may be null; it stays the caller's. Throws SetupError.
    TapNetwork(TapDevice device, const Subnet& searcher, const std::vector<SimulatedHost>& hosts,
               Capture* capture);

    // TCP to and from the hosts goes through this tun device from now on.
    void Attach(lansim::Descriptor peerStack);

    void SetHosts(const std::vector<SimulatedHost>& hosts) override;
    int Descriptor() const override { return m_ready.Get(); }
    void Receive(const DatagramHandler& handler) override;
    SendResult Send(const Datagram& datagram) override;

    const TapCounts& Counts() const { return m_counts; }

private:
    struct Host {
        Mac mac{};
        bool answersArp = true;
        bool asksArp = true;
        Ports udpPorts;
        Ports tcpPorts;
        std::map<IpAddress, TimePoint> asked;  // whose MAC it has asked for, and when
    };

    void SetUpForSearcher(const std::string& device, const Subnet& searcher, bool hasIpv6);
    void Refuse(std::string_view frame);
    void Watch(int fd);
    void Handle(std::string_view frame, const DatagramHandler& handler);
    void HandleWhole(std::string_view frame, const DatagramHandler& handler);
    void Handle(const ArpRequest& request);
    void Handle(const NeighbourSolicit& question);
    void Handle(const EchoRequest& request);
    void Handle(const TcpPacket& packet);
    void Handle(const Datagram& datagram, const DatagramHandler& handler);
    void PassOn(std::string_view packet);
    void Learn(const IpAddress& ip, const Mac& mac);
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
    std::multimap<IpAddress, Host> m_hosts;
    std::map<IpAddress, Mac> m_peers;        // whom the hosts have heard
    std::map<IpAddress, Mac> m_connectedAs;  // which host of a shared address TCP last went to
    std::uint16_t m_nextIpId = 1;
};

}  // namespace lansim
