// The clock that everything in a run is timed by.
#pragma once

#include <chrono>

namespace lansim {

using TimePoint = std::chrono::steady_clock::time_point;

}  // namespace lansim
