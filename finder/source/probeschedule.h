// When which Probe goes to the group.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <queue>
#include <random>
#include <string>
#include <vector>

#include "finder/source/probemessage.h"

namespace Lanscout {

using ProbeTime = std::chrono::steady_clock::time_point;

// To each target both types at once, each of them again 50 to 250 ms later with the same MessageID
// (SOAP-over-UDP, appendix I), and all that with new ids every 2 s: for who was late, and for
// what was lost.
class ProbeSchedule {
public:
    struct Due {
        std::size_t target = 0;  // its number
        ProbeType type = ProbeType::NetworkVideoTransmitter;
        std::string messageId;
    };

    ProbeSchedule(std::size_t targets, ProbeTime start);

    // What is to be sent by that time; nothing when all of it has been taken.
    std::optional<Due> Take(ProbeTime now);

    // When the next one is due.
    ProbeTime Next() const;

private:
    struct Entry {
        ProbeTime time;
        bool copy = false;
        Due due;

        // For a queue with the earliest on top.
        bool operator<(const Entry& other) const { return time > other.time; }
    };

    MessageIds m_ids;
    std::mt19937 m_random;
    std::priority_queue<Entry> m_entries;
};

}  // namespace Lanscout
