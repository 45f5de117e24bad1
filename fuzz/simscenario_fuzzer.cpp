// The simulator: a scenario from whoever wrote it, to the devices, their truth and their replies.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/check.h"
#include "tools/lanscout-sim/base/setuperror.h"
#include "tools/lanscout-sim/onvif/reply.h"
#include "tools/lanscout-sim/population.h"
#include "tools/lanscout-sim/report.h"
#include "tools/lanscout-sim/scenario.h"
#include "tools/lanscout-sim/upnp/ssdp.h"

namespace {

constexpr lansim::Ipv4 kSearcher{0x0A630001};  // 10.99.0.1

lansim::Population Devices(const lansim::Scenario& scenario) {
    lansim::PopulationRequest request;
    request.network = {kSearcher, 16};
    request.named = scenario.cameras;
    request.namedUpnp = scenario.upnpDevices;
    return lansim::MakePopulation(request);
}

void Speak(const lansim::Population& population) {
    lansim::Probe probe;
    probe.messageId = "urn:uuid:1";
    for (const auto& camera : population.cameras) {
        lansim::BuildReply(camera, probe, {});
        lansim::BuildHello(camera, {});
    }
    for (const auto& device : population.upnpDevices) {
        lansim::DescriptionOf(device);
        lansim::IdentitiesOf(device);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        const auto scenario = lansim::ParseScenario(text, "scenario");
        const auto population = Devices(scenario);
        Speak(population);
        const std::string truth =
            lansim::Truth(population)
                .dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
        const auto again = Devices(lansim::ParseScenario(truth, "truth"));
        Check(again.cameras.size() == population.cameras.size() &&
                  again.upnpDevices.size() == population.upnpDevices.size(),
              "a truth makes the same devices again");
    } catch (const lansim::SetupError& error) {
        Check(std::string_view(error.what()).find("truth") != 0, "a truth is a scenario");
        Check(*error.what() != '\0', "an error says what is wrong");
    }
    return 0;
}
