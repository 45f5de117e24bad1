// What a source gives up once it has all that it needs.
#pragma once

#include "finder/machine/confinement.h"
#include "finder/source/sender.h"

namespace Lanscout {

// To be called before the first byte of a stranger is read. What this kernel has no means for is a
// line of the log.
void ConfineSource(const Freedom& freedom, Sender& sender);

}  // namespace Lanscout
