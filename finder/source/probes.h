// The source of whole replies: Probes of the finder's own, from ports of its own, whoever holds the
// port of WS-Discovery.
#pragma once

#include "finder/source/source.h"

namespace Lanscout {

// For all targets in one process.
void RunProbes(const Job& job, Sender& sender);

}  // namespace Lanscout
