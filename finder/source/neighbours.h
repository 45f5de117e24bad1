// The source `neighbours`: MAC addresses from the kernel's neighbour table.
#pragma once

#include "finder/source/source.h"

namespace Lanscout {

// Tells each usable neighbour on the interfaces of the job's targets, or on all where it has none,
// until the request's time is over. Needs no privilege.
void RunNeighbours(const Job& job, Sender& sender);

}  // namespace Lanscout
