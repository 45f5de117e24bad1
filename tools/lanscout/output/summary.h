// A search in one sentence.
#pragma once

#include <cstddef>
#include <string>

#include "finder/device/comparison.h"
#include "finder/event.h"

namespace Lanscout {

// "12 devices (10 cameras) on eth0 (192.168.1.2) in 8.1 s", fit to be shown.
std::string SummaryText(const Report& report);

// "1 missing, 2 new, 0 changed", or that all is the same as before.
std::string DifferencesText(const Comparison& comparison);

// "1 device", "12 devices".
std::string Counted(std::size_t count, const char* what);

}  // namespace Lanscout
