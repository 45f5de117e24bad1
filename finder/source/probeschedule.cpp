#include "finder/source/probeschedule.h"

namespace Lanscout {
namespace {

constexpr std::chrono::seconds kRound{2};

// SOAP-over-UDP 1.1, appendix I: UDP_MIN_DELAY, UDP_MAX_DELAY.
constexpr int kLeastDelayMilliseconds = 50;
constexpr int kMostDelayMilliseconds = 250;

}  // namespace

ProbeSchedule::ProbeSchedule(std::size_t targets, ProbeTime start)
    : m_random(std::random_device{}()) {
    for (const ProbeType type : {ProbeType::NetworkVideoTransmitter, ProbeType::Device}) {
        for (std::size_t target = 0; target < targets; ++target) {
            m_entries.push({start, false, {target, type, ""}});
        }
    }
}

std::optional<ProbeSchedule::Due> ProbeSchedule::Take(ProbeTime now) {
    if (m_entries.empty() || m_entries.top().time > now) {
        return std::nullopt;
    }
    Entry entry = m_entries.top();
    m_entries.pop();
    if (!entry.copy) {
        entry.due.messageId = m_ids.Next();
        std::uniform_int_distribution<int> delay(kLeastDelayMilliseconds, kMostDelayMilliseconds);
        m_entries.push({now + std::chrono::milliseconds(delay(m_random)), true, entry.due});
        m_entries.push({entry.time + kRound, false, {entry.due.target, entry.due.type, ""}});
    }
    return entry.due;
}

ProbeTime ProbeSchedule::Next() const {
    return m_entries.empty() ? ProbeTime::max() : m_entries.top().time;
}

}  // namespace Lanscout
