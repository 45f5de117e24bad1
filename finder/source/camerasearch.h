// The camera search, as it runs in its own process.
#pragma once

#include "finder/source/sender.h"

namespace Lanscout {

void RunOnvifSearch(const Target& target, int seconds, Sender& sender);

}  // namespace Lanscout
