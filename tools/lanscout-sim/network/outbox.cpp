#include "tools/lanscout-sim/network/outbox.h"

#include <algorithm>
#include <utility>

namespace lansim {

constexpr std::chrono::milliseconds kRetryPause{1};

void Outbox::Add(TimePoint due, Outgoing outgoing) {
    if (Random(m_seed, {outgoing.draw}).Chance(m_loss)) {
        ++m_counts.lost;
        return;
    }
    auto kept = std::make_unique<Outgoing>(std::move(outgoing));
    m_waiting.push_back({due, m_nextOrder++, std::move(kept)});
    std::push_heap(m_waiting.begin(), m_waiting.end(), std::greater<>());
}

std::optional<TimePoint> Outbox::NextDue() const {
    if (m_waiting.empty()) {
        return std::nullopt;
    }
    return m_waiting.front().due;
}

void Outbox::SendDue(TimePoint now, Network& network) {
    while (!m_waiting.empty() && m_waiting.front().due <= now) {
        std::pop_heap(m_waiting.begin(), m_waiting.end(), std::greater<>());
        Entry entry = std::move(m_waiting.back());
        m_waiting.pop_back();
        Deliver(std::move(entry), now, network);
    }
}

void Outbox::Deliver(Entry entry, TimePoint now, Network& network) {
    const auto& [from, to, write, sentCount, mac, draw] = *entry.outgoing;
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
            m_waiting.push_back(std::move(entry));
            std::push_heap(m_waiting.begin(), m_waiting.end(), std::greater<>());
            return;
        case SendResult::Failed:
            ++m_counts.failed;
            return;
    }
}

}  // namespace lansim
