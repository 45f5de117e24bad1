#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/lanscout-sim/camera.h"
#include "tools/lanscout-sim/responder.h"
#include "tools/lanscout-sim/tapnetwork.h"

namespace lansim {

// Who is there, with what became of each; the format is described in docs/simulator.md.
nlohmann::ordered_json DevicesReport(const std::vector<Camera>& cameras);

nlohmann::ordered_json CountsReport(const ResponderCounts& counts, const TapCounts* tap);

// "-" is standard output. Throws SetupError.
void WriteReport(const nlohmann::ordered_json& report, const std::string& fileName);

}  // namespace lansim
