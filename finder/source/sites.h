// The source `sites`: what other lanscouts publish (tools/lanscout/publish).
#pragma once

#include "finder/source/source.h"

namespace Lanscout {

// Reads what the request's broker keeps of all sites, and ends as soon as it has all of it. What a
// site has published is that site's and nobody else's: the topic says whose, never the payload.
void RunSites(const Job& job, Sender& sender);

}  // namespace Lanscout
