// The simulator: one datagram from whoever sends it, to the replies of its cameras and UPnP
// devices.
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/check.h"
#include "tools/lanscout-sim/network/outbox.h"
#include "tools/lanscout-sim/onvif/reply.h"
#include "tools/lanscout-sim/onvif/responder.h"
#include "tools/lanscout-sim/population.h"
#include "tools/lanscout-sim/upnp/upnpresponder.h"

namespace {

constexpr lansim::Ipv4 kSearcher{0x0A630001};     // 10.99.0.1
constexpr std::size_t kLargestDatagram = 65'507;  // UDP over IPv4

struct FreeDoc {
    void operator()(xmlDoc* doc) const { xmlFreeDoc(doc); }
};

void CheckIsXml(const std::string& reply) {
    const std::unique_ptr<xmlDoc, FreeDoc> doc(
        xmlReadMemory(reply.data(), static_cast<int>(reply.size()), nullptr, nullptr,
                      XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
    Check(doc != nullptr, "a reply is well-formed whatever the Probe says");
}

class Replies : public lansim::Network {
public:
    int Descriptor() const override { return -1; }
    void Receive(const lansim::DatagramHandler&) override {}
    lansim::SendResult Send(const lansim::Datagram& datagram) override {
        Check(datagram.to.ip == kSearcher, "the reply goes to the searcher");
        Check(datagram.payload.size() <= kLargestDatagram, "a reply fits a datagram");
        m_vecReplies.push_back(datagram.payload);
        return lansim::SendResult::Sent;
    }
    const std::vector<std::string>& All() const { return m_vecReplies; }

private:
    std::vector<std::string> m_vecReplies;
};

lansim::Population Devices() {
    lansim::PopulationRequest request;
    request.network = {kSearcher, 16};
    request.generated = 2 * std::size_t{lansim::ShapeCount()};
    request.generatedUpnp = 4;
    return lansim::MakePopulation(request);
}

// What the devices of the responder answer to the datagram.
template <typename Responder, typename Device>
std::vector<std::string> Ask(std::deque<Device> devices, const lansim::Datagram& datagram) {
    const lansim::TimePoint start{};
    lansim::Outbox outbox(1, 0);
    Responder responder(devices, {}, outbox);
    responder.OnDatagram(datagram, start);
    Replies replies;
    outbox.SendDue(start + std::chrono::hours(1), replies);
    return replies.All();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const lansim::Population kDevices = Devices();
    const lansim::Datagram datagram{{kSearcher, lansim::kDiscoveryPort},
                                    {lansim::kMulticastGroup, lansim::kDiscoveryPort},
                                    std::string(reinterpret_cast<const char*>(data), size)};
    const auto replies = Ask<lansim::Responder>(kDevices.cameras, datagram);
    Check(replies.size() <= kDevices.cameras.size(), "each camera answers once");
    for (const std::string& reply : replies) {
        CheckIsXml(reply);
    }
    Ask<lansim::UpnpResponder>(kDevices.upnpDevices, datagram);
    return 0;
}
