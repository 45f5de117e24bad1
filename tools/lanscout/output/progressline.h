// The line that tells how far a search is.
#pragma once

#include <cstddef>
#include <string>

#include "finder/event.h"

namespace Lanscout {

// "[#####-----]  4 s left, 12 devices", never wider than `width` columns.
std::string ProgressLine(const Progress& progress, std::size_t devices, int width);

}  // namespace Lanscout
