// The time of day as text.
#pragma once

#include <string>

namespace Lanscout {

// Now, as "2026-11-21T08:15:30Z".
std::string NowText();

}  // namespace Lanscout
