// The UPnP search, as it runs in its own process.
#pragma once

#include "finder/source/sender.h"

namespace Lanscout {

// `number` tells the searches apart that run at once: each listens at a port of its own.
void RunUpnpSearch(const Target& target, int seconds, int number, Sender& sender);

}  // namespace Lanscout
