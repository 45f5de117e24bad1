// From the library's failure lines to words that help.
#pragma once

#include <optional>
#include <string_view>

#include "finder/machine/problem.h"

namespace Lanscout {

// The problem behind a log line of the camera search on `target`; nothing for lines that are no
// failure of the search as a whole.
std::optional<Problem> ExplainLogLine(const Target& target, std::string_view line);

}  // namespace Lanscout
