#include "tools/lanscout-sim/uuid.h"

#include <fmt/format.h>

namespace lansim {

std::string RandomUuid(std::mt19937_64& random) {
    const std::uint64_t high = random();
    const std::uint64_t low = random();
    return fmt::format("{:08x}-{:04x}-{:04x}-{:04x}-{:012x}", high >> 32, (high >> 16) & 0xFFFF,
                       (high & 0x0FFF) | 0x4000, ((low >> 48) & 0x3FFF) | 0x8000,
                       low & 0xFFFFFFFFFFFF);
}

}  // namespace lansim
