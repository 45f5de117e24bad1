// The library's log lines on their way to the tool.
#pragma once

#include "finder/source/sender.h"

namespace Lanscout {

// From now on every log line of this process, up to the most detailed, goes to `sender`, which
// must outlive the process's searches.
void SendLibraryLog(Sender& sender);

}  // namespace Lanscout
