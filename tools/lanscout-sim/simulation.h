// One run from its start to its end.
#pragma once

#include "tools/lanscout-sim/options.h"

namespace lansim {

// Sets the network up, runs it until its end, and removes it. The result is the exit status:
// the command's own when there is one, else 0. Throws SetupError.
int RunSimulation(const Options& options);

}  // namespace lansim
