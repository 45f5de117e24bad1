#include "tools/lanscout-sim/network/outbox.h"

#include <utility>

namespace lansim {

constexpr std::chrono::milliseconds kRetryPause{1};

void Outbox::Add(TimePoint due, Outgoing outgoing) {
    if (Random(m_seed, {outgoing.draw}).Chance(m_loss)) {
        ++m_counts.lost;
        return;
    }
    m_waiting.push({due, m_nextOrder++, std::move(outgoing)});
}

std::optional<TimePoint> Outbox::NextDue() const {
    if (m_waiting.empty()) {
        return std::nullopt;
    }
    return m_waiting.top().due;
}

void Outbox::SendDue(TimePoint now, Network& network) {
    while (!m_waiting.empty() && m_waiting.top().due <= now) {
        Entry entry = m_waiting.top();
        m_waiting.pop();
        Deliver(std::move(entry), now, network);
    }
}

void Outbox::Deliver(Entry entry, TimePoint now, Network& network) {
    const auto& [from, to, write, sentCount, mac, draw] = entry.outgoing;
    switch (network.Send({from, to, write(), mac, {}})) {
        case SendResult::Sent:
            ++m_counts.sent;
            if (sentCount != nullptr) {
                ++*sentCount;
            }
            return;
        case SendResult::TryAgain:
            ++m_counts.repeated;
            entry.due = now + kRetryPause;
            m_waiting.push(std::move(entry));
            return;
        case SendResult::Failed:
            ++m_counts.failed;
            return;
    }
}

}  // namespace lansim
