// The monotonic clock, which nobody can set. A bounded search ends, and spaces its Probes, by it.
#pragma once

#include <cstdint>
#include <ctime>

#include "utils/bounded.h"

inline std::int64_t MonotonicMicroseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

// When this thread began to probe, by the monotonic clock; 0 on every thread that is not a
// discovery thread inside its cycles, and in the default build.
inline thread_local std::int64_t t_probingSince = 0;

class ProbingSince {
public:
    explicit ProbingSince(std::int64_t now) { t_probingSince = now; }
    ~ProbingSince() { t_probingSince = 0; }
    ProbingSince(const ProbingSince&) = delete;
    ProbingSince& operator=(const ProbingSince&) = delete;
};

// Waits until two pairs of Probes are far enough apart, and notes the time of the next pair.
inline void PaceProbes(std::int64_t& lastPair) {
    const std::int64_t due = lastPair + kProbeIntervalMicroseconds;
    while (MonotonicMicroseconds() < due) {
        const timespec until{static_cast<time_t>(due / 1'000'000),
                             static_cast<long>(due % 1'000'000 * 1000)};
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
    }
    lastPair = MonotonicMicroseconds();
}
