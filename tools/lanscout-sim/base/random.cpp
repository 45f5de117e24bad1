#include "tools/lanscout-sim/base/random.h"

#include <fmt/format.h>

namespace lansim {

bool Random::Chance(double probability) {
    constexpr double kTwoTo53 = 9007199254740992.0;
    return probability > 0 && static_cast<double>(m_engine() >> 11) / kTwoTo53 < probability;
}

std::chrono::microseconds Random::UpTo(std::chrono::microseconds longest) {
    return std::chrono::microseconds(Below(static_cast<std::uint64_t>(longest.count()) + 1));
}

std::string Random::Uuid() {
    const std::uint64_t high = m_engine();
    const std::uint64_t low = m_engine();
    return fmt::format("{:08x}-{:04x}-{:04x}-{:04x}-{:012x}", high >> 32, (high >> 16) & 0xFFFF,
                       (high & 0x0FFF) | 0x4000, ((low >> 48) & 0x3FFF) | 0x8000,
                       low & 0xFFFFFFFFFFFF);
}

}  // namespace lansim
