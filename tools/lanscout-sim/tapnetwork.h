#pragma once

#include <map>
#include <set>

#include "tools/lanscout-sim/camera.h"
#include "tools/lanscout-sim/capture.h"
#include "tools/lanscout-sim/frames.h"
#include "tools/lanscout-sim/netns.h"
#include "tools/lanscout-sim/network.h"

namespace lansim {

struct TapCounts {
    std::uint64_t framesHeard = 0;
    std::uint64_t framesSent = 0;
    std::uint64_t arpRequestsHeard = 0;
    std::uint64_t arpRepliesSent = 0;
    std::uint64_t arpRequestsSent = 0;
    std::uint64_t echoRepliesSent = 0;
};

// All devices behind one tap, each a host with its own IPv4 and Ethernet address.
class TapNetwork : public Network {
public:
    // `capture` may be null; it and the cameras stay the caller's.
    TapNetwork(const std::string& device, const Subnet& searcher,
               const std::vector<Camera>& cameras, Capture* capture);

    int Descriptor() const override { return m_tap.frames.Get(); }
    void Receive(const DatagramHandler& handler) override;
    SendResult Send(const Datagram& datagram) override;

    const TapCounts& Counts() const { return m_counts; }

private:
    struct Device {
        Mac mac{};
        bool answersArp = true;
        bool asksArp = true;
        std::set<Ipv4> asked;  // whose MAC it has asked for
    };

    void Handle(std::string_view frame, const DatagramHandler& handler);
    void Handle(const ArpRequest& request);
    void Handle(const EchoRequest& request);
    void Handle(const UdpFrame& frame, const DatagramHandler& handler);
    SendResult AskForMac(Device& device, Ipv4 own, Ipv4 peer);
    SendResult Write(std::string_view frame);

    Tap m_tap;
    Capture* m_capture;
    TapCounts m_counts;
    std::map<Ipv4, Device> m_devices;
    std::map<Ipv4, Mac> m_peers;  // whom the devices have heard
    std::uint16_t m_nextIpId = 1;
};

}  // namespace lansim
