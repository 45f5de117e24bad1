// The camera search, as it runs in its own process.
#pragma once

#include "tools/lanscout/sender.h"

namespace LanscoutTool {

void RunOnvifSearch(const Target& target, int seconds, Sender& sender);

}  // namespace LanscoutTool
