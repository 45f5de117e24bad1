// Whom to ask once more, at its own address, so that this machine learns its MAC address.
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <unordered_set>

namespace Lanscout {

// A device that answers a Probe may have learnt our MAC address without asking, and then the kernel
// does not know its own. Sending anything to it makes the kernel ask. Not so fast that the kernel's
// table of neighbours overflows, which would cost other entries.
class NeighbourAsker {
public:
    using Time = std::chrono::steady_clock::time_point;

    struct Due {
        std::size_t post = 0;
        std::string address;
    };

    // `room` entries are free in the kernel's table (from gc_thresh2 of the kernel).
    NeighbourAsker(Time start, std::size_t room);

    // A device of a subnet of ours answered there.
    void NoteHeard(std::size_t post, const std::string& address);

    // The kernel knows the MAC address of that one.
    void NoteKnown(const std::string& address);

    // Whom to ask by now; nothing when nobody is due.
    std::optional<Due> Take(Time now);

    // When somebody may be due; Time::max() when nobody waits.
    Time Next() const { return m_waiting.empty() ? Time::max() : m_next; }

private:
    std::size_t m_room;
    Time m_next;
    std::deque<Due> m_waiting;
    std::unordered_set<std::string> m_heard;
    std::unordered_set<std::string> m_known;
    std::unordered_set<std::string> m_asked;  // and not known
};

// The entries that the kernel's table has room for before it starts to clean up; its default where
// that cannot be read.
std::size_t NeighbourTableRoom();

}  // namespace Lanscout
