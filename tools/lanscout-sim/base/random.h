// Chance that a seed repeats on every machine.
#pragma once

#include <chrono>
#include <cstdint>
#include <random>
#include <string>

namespace lansim {

// Chance that a seed repeats. Not std::uniform_*_distribution: what those draw differs from one
// standard library to another, and a seed shall mean the same run everywhere.
class Random {
public:
    explicit Random(std::uint64_t seed) : m_engine(seed) {}

    // 0 to limit - 1.
    std::uint64_t Below(std::uint64_t limit) { return m_engine() % limit; }
    bool Chance(double probability);
    std::chrono::microseconds UpTo(std::chrono::microseconds longest);
    // Version 4 (RFC 4122), without "urn:uuid:".
    std::string Uuid();

private:
    std::mt19937_64 m_engine;
};

}  // namespace lansim
