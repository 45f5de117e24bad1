// The simulator: one datagram from whoever sends it, to the replies of its cameras.
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/check.h"
#include "tools/lanscout-sim/outbox.h"
#include "tools/lanscout-sim/population.h"
#include "tools/lanscout-sim/reply.h"
#include "tools/lanscout-sim/responder.h"

namespace {

constexpr lansim::Ipv4 kSearcher{0x0A630001};     // 10.99.0.1
constexpr std::size_t kLargestDatagram = 65'507;  // UDP over IPv4

struct FreeDoc {
    void operator()(xmlDoc* doc) const { xmlFreeDoc(doc); }
};

void CheckReply(const std::string& reply) {
    Check(reply.size() <= kLargestDatagram, "a reply fits a datagram");
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
        CheckReply(datagram.payload);
        ++m_nReplies;
        return lansim::SendResult::Sent;
    }
    std::size_t Count() const { return m_nReplies; }

private:
    std::size_t m_nReplies = 0;
};

std::vector<lansim::Camera> Cameras() {
    lansim::PopulationRequest request;
    request.network = {kSearcher, 16};
    request.generated = 2 * std::size_t{lansim::ShapeCount()};
    return lansim::MakePopulation(request).cameras;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::vector<lansim::Camera> kCameras = Cameras();
    std::vector<lansim::Camera> cameras = kCameras;
    lansim::Outbox outbox(1, 0);
    lansim::Responder responder(cameras, {}, outbox);
    const lansim::TimePoint start{};
    responder.OnDatagram({{kSearcher, lansim::kDiscoveryPort},
                          {lansim::kMulticastGroup, lansim::kDiscoveryPort},
                          std::string(reinterpret_cast<const char*>(data), size)},
                         start);
    Replies replies;
    outbox.SendDue(start + std::chrono::hours(1), replies);
    Check(replies.Count() <= cameras.size(), "each camera answers once");
    Check(responder.Counts().probes == 1 || replies.Count() == 0, "only a Probe is answered");
    return 0;
}
