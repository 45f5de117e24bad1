// A scenario made of what real devices said.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "tools/lanscout-sim/network/address.h"

namespace lansim {

// Every device that answered a Probe in the capture, as a scenario: what it said, with the ids and
// addresses that are each run's own taken out. Throws SetupError.
nlohmann::ordered_json RecordScenario(const std::string& captureFile);

// One reply as a device of a scenario; null when it is no ProbeMatches.
nlohmann::ordered_json RecordReply(std::string_view reply, Ipv4 from, const Mac& mac);

// lanscout-sim record FILE: prints the scenario. The result is the exit status.
int RunRecord(int argc, const char* const* argv);

}  // namespace lansim
