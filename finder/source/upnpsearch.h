// The source `upnpsearch`: UPnP root devices, by the library's UPnP search.
#pragma once

#include "finder/source/source.h"

namespace Lanscout {

// Searches from the job's one target: libupnp can be initialised once in a process only. The job's
// number tells the processes apart, which listen at ports of their own.
void RunUpnpSearch(const Job& job, Sender& sender);

}  // namespace Lanscout
