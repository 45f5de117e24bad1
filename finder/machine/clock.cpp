#include "finder/machine/clock.h"

#include <fmt/chrono.h>

#include <ctime>

namespace Lanscout {

std::string NowText() {
    return TimeText(std::time(nullptr));
}

std::string TimeText(std::time_t time) {
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(time));
}

std::time_t TimeFrom(const std::string& text) {
    std::tm parts{};
    const char* const end = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    const bool whole = end != nullptr && end == text.c_str() + text.size();
    return whole ? timegm(&parts) : -1;
}

}  // namespace Lanscout
