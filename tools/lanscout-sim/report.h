// What a run tells about its devices and itself, as JSON.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "tools/lanscout-sim/base/outputfile.h"
#include "tools/lanscout-sim/network/tapnetwork.h"
#include "tools/lanscout-sim/onvif/responder.h"
#include "tools/lanscout-sim/population.h"
#include "tools/lanscout-sim/upnp/upnpresponder.h"

namespace lansim {

// Who is there, as a scenario that makes the same devices again.
nlohmann::ordered_json Truth(const Population& population);

// Who is there, with what became of each; the format is described in docs/simulator.md.
nlohmann::ordered_json DevicesReport(const Population& population);

struct AllCounts {
    const ResponderCounts& cameras;
    const UpnpResponderCounts& upnp;
    const OutboxCounts& outbox;
    const TapCounts* tap = nullptr;  // null in loopback mode
};
nlohmann::ordered_json CountsReport(const AllCounts& counts);

// Throws SetupError.
void WriteReport(const nlohmann::ordered_json& report, OutputFile& file);

}  // namespace lansim
