// The source `frames`: the MAC address of each reply's own frame, and who is on the wire with an
// address of another subnet.
#pragma once

#include "finder/source/source.h"

namespace Lanscout {

// Listens on the interfaces of the job's targets until the request's time is over. Needs
// CAP_NET_RAW.
void RunFrames(const Job& job, Sender& sender);

}  // namespace Lanscout
