// The library's log lines on their way to the tool.
#pragma once

#include "finder/source/sender.h"

namespace Lanscout {

// From now on every log line of this process, up to the most detailed, goes to `sender`, which
// must outlive the process's searches.
void SendLibraryLog(Sender& sender);

// The level that a line of the stand-alone host's printer names; 0 when it names none.
int LevelOfLine(std::string_view line);

}  // namespace Lanscout
