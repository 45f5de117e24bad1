// What the command does, from its options to its exit status.
#pragma once

#include "tools/lanscout/arguments.h"

namespace LanscoutTool {

int RunCommand(const Options& options);

}  // namespace LanscoutTool
