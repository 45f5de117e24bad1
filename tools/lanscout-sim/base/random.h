// Chance that a seed repeats.
#pragma once

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace lansim {

// A number that stands for a text in a draw.
std::uint64_t KeyOf(std::string_view text);

// Not std::uniform_*_distribution: what those draw differs from one standard library to another,
// and a seed shall mean the same run everywhere. It costs nothing to make (SplitMix64), so that
// every draw can have a generator of its own.
class Random {
public:
    explicit Random(std::uint64_t seed) : m_state(seed) {}
    // What is drawn depends on the keys alone (whose draw, at what message, what for), and not on
    // how many were drawn before it.
    Random(std::uint64_t seed, std::initializer_list<std::uint64_t> keys);

    std::uint64_t Next();
    // 0 to limit - 1.
    std::uint64_t Below(std::uint64_t limit) { return Next() % limit; }
    bool Chance(double probability);
    std::chrono::microseconds UpTo(std::chrono::microseconds longest);
    // Version 4 (RFC 4122), without "urn:uuid:".
    std::string Uuid();

private:
    std::uint64_t m_state;
};

}  // namespace lansim
