// The simulator: requests at the control socket, to the devices that they change. Each is a line
// with the method and the path, then the body up to a zero byte.
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <string_view>

#include "fuzz/check.h"
#include "tools/lanscout-sim/controlapi.h"

namespace {

constexpr lansim::Subnet kNetwork{lansim::Ipv4{0x0A630001}, 16};  // 10.99.0.1/16
constexpr std::size_t kMostRequests = 16;

lansim::Population Devices() {
    lansim::PopulationRequest request;
    request.network = kNetwork;
    request.generated = 3;
    request.generatedUpnp = 2;
    return lansim::MakePopulation(request);
}

lansim::ControlRequest Request(std::string_view text) {
    const auto line = text.substr(0, text.find('\n'));
    const auto space = line.find(' ');
    lansim::ControlRequest request;
    request.method = line.substr(0, space);
    request.path = space == std::string_view::npos ? "" : line.substr(space + 1);
    request.body = line.size() < text.size() ? text.substr(line.size() + 1) : "";
    return request;
}

class Silence : public lansim::Network {
public:
    int Descriptor() const override { return -1; }
    void Receive(const lansim::DatagramHandler&) override {}
    lansim::SendResult Send(const lansim::Datagram&) override { return lansim::SendResult::Sent; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::set<unsigned> kStatuses = {200, 201, 204, 400, 404, 405};
    lansim::Population population = Devices();
    lansim::Outbox outbox(1, 0);
    lansim::Responder cameras(population.cameras, {}, outbox);
    lansim::UpnpResponder upnp(population.upnpDevices, {}, outbox);
    lansim::Stage stage(population, kNetwork, cameras, upnp, [] {});
    const lansim::Journal journal{lansim::TimePoint{}};
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    for (std::size_t i = 0; i < kMostRequests && !rest.empty(); ++i) {
        const auto text = rest.substr(0, rest.find('\0'));
        rest.remove_prefix(std::min(rest.size(), text.size() + 1));
        const auto answer =
            lansim::AnswerControl(Request(text), stage, journal, lansim::TimePoint{});
        Check(kStatuses.contains(answer.status), "a status that is described");
        Check(answer.json.empty() == (answer.status == 204), "an answer has a body");
        const auto json = nlohmann::json::parse(answer.json, nullptr, false);
        Check(answer.status == 204 || !json.is_discarded(), "an answer is JSON");
        Check(answer.status < 400 || !json["error"].get<std::string>().empty(),
              "an error says what is wrong");
    }
    Silence silence;
    outbox.SendDue(lansim::TimePoint{} + std::chrono::hours(1), silence);
    return 0;
}
