#include "finder/source/neighbourasker.h"

#include <fstream>
#include <utility>

namespace Lanscout {
namespace {

constexpr std::chrono::milliseconds kFirst{600};  // most have answered, and asked for us, by then
constexpr std::chrono::microseconds kBetween{2000};
constexpr std::chrono::microseconds kBetweenWhenFull{4000};
constexpr std::chrono::milliseconds kBetweenWhenOverfull{200};
constexpr std::size_t kUsualRoom = 512;  // gc_thresh2 in arp(7)
constexpr std::size_t kMostWaiting = 4096;

}  // namespace

NeighbourAsker::NeighbourAsker(Time start, std::size_t room)
    : m_room(room), m_next(start + kFirst) {}

void NeighbourAsker::NoteHeard(std::size_t post, const std::string& address) {
    if (m_waiting.size() < kMostWaiting && m_heard.size() < 2 * kMostWaiting &&
        !m_known.contains(address) && m_heard.insert(address).second) {
        m_waiting.push_back({post, address});
    }
}

void NeighbourAsker::NoteKnown(const std::string& address) {
    m_known.insert(address);
    m_asked.erase(address);
}

std::optional<NeighbourAsker::Due> NeighbourAsker::Take(Time now) {
    while (!m_waiting.empty() && m_known.contains(m_waiting.front().address)) {
        m_waiting.pop_front();
    }
    if (m_waiting.empty() || now < m_next) {
        return std::nullopt;
    }
    // The kernel refuses at twice the number from which on it cleans up (gc_thresh3).
    const std::size_t entries = m_known.size() + m_asked.size();
    if (entries >= 2 * m_room) {
        m_next = now + kBetweenWhenOverfull;
        return std::nullopt;
    }
    Due due = std::move(m_waiting.front());
    m_waiting.pop_front();
    m_asked.insert(due.address);
    m_next = now + (entries < m_room ? kBetween : kBetweenWhenFull);
    return due;
}

std::size_t NeighbourTableRoom() {
    std::ifstream file("/proc/sys/net/ipv4/neigh/default/gc_thresh2");
    std::size_t room = 0;
    return file >> room && room > 0 ? room : kUsualRoom;
}

}  // namespace Lanscout
