#include "finder/machine/clock.h"

#include <fmt/chrono.h>

#include <ctime>

namespace Lanscout {

std::string NowText() {
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(std::time(nullptr)));
}

}  // namespace Lanscout
