// The hosts that a run's devices stand on, as the network wants to know them.
#pragma once

#include <vector>

#include "tools/lanscout-sim/network/host.h"
#include "tools/lanscout-sim/population.h"

namespace lansim {

// Who is there now, or who is ever there.
enum class Attendance { Present, Ever };

std::vector<SimulatedHost> HostsOf(const Population& population,
                                   Attendance attendance = Attendance::Present);

}  // namespace lansim
