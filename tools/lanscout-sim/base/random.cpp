#include "tools/lanscout-sim/base/random.h"

#include <fmt/format.h>

namespace lansim {
namespace {

std::uint64_t Mixed(std::uint64_t value) {
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9ULL;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBULL;
    return value ^ (value >> 31);
}

}  // namespace

std::uint64_t KeyOf(std::string_view text) {
    std::uint64_t key = 0xCBF29CE484222325ULL;  // FNV-1a
    for (const char c : text) {
        key = (key ^ static_cast<unsigned char>(c)) * 0x100000001B3ULL;
    }
    return key;
}

Random::Random(std::uint64_t seed, std::initializer_list<std::uint64_t> keys) : m_state(seed) {
    for (const auto key : keys) {
        m_state = Next() ^ Mixed(key + 1);
    }
}

std::uint64_t Random::Next() {
    m_state += 0x9E3779B97F4A7C15ULL;
    return Mixed(m_state);
}

bool Random::Chance(double probability) {
    constexpr double kTwoTo53 = 9007199254740992.0;
    return probability > 0 && static_cast<double>(Next() >> 11) / kTwoTo53 < probability;
}

std::chrono::microseconds Random::UpTo(std::chrono::microseconds longest) {
    return std::chrono::microseconds(Below(static_cast<std::uint64_t>(longest.count()) + 1));
}

std::string Random::Uuid() {
    const std::uint64_t high = Next();
    const std::uint64_t low = Next();
    return fmt::format("{:08x}-{:04x}-{:04x}-{:04x}-{:012x}", high >> 32, (high >> 16) & 0xFFFF,
                       (high & 0x0FFF) | 0x4000, ((low >> 48) & 0x3FFF) | 0x8000,
                       low & 0xFFFFFFFFFFFF);
}

}  // namespace lansim
