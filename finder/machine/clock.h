// The time of day as text.
#pragma once

#include <ctime>
#include <string>

namespace Lanscout {

// Now, as "2026-11-21T08:15:30Z".
std::string NowText();

// Any time, as such a text.
std::string TimeText(std::time_t time);

// The time that such a text tells; -1 when it is none.
std::time_t TimeFrom(const std::string& text);

}  // namespace Lanscout
