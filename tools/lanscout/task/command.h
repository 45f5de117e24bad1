// What the command does, from its options to its exit status.
#pragma once

#include "tools/lanscout/options.h"

namespace Lanscout {

int RunCommand(const Options& options);

}  // namespace Lanscout
