// How long to wait before the next attempt.
#pragma once

#include <chrono>
#include <random>

namespace Lanscout {

// Each pause is drawn, so that many who lose the same broker at the same moment do not come back at
// the same moment; and the next ones are drawn from twice as long a time.
class Backoff {
public:
    static constexpr std::chrono::milliseconds kFirst{2000};
    static constexpr std::chrono::milliseconds kLongest{60000};

    explicit Backoff(std::uint32_t seed) : m_random(seed) {}

    std::chrono::milliseconds Next();

    // It has worked, for a while.
    void Reset() { m_within = kFirst; }

private:
    std::mt19937 m_random;
    std::chrono::milliseconds m_within = kFirst;
};

}  // namespace Lanscout
