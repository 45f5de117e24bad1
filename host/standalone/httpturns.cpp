#include "host/standalone/httpturns.h"

#include <utility>

HttpTurns::HttpTurns(std::function<Clock::time_point()> now, std::chrono::milliseconds longestWait)
    : m_now(std::move(now)), m_longestWait(longestWait) {}

bool HttpTurns::Begin(in_addr host) {
    std::unique_lock lock(m_mutex);
    MakeRoom();
    Host& entry = m_hosts[host.s_addr];
    const auto hasTurn = [this, &entry] {
        return IsRefused(entry) || entry.nRunning < kRequestsAtOnce;
    };
    ++entry.nWaiting;
    const bool inTime = m_ended.wait_for(lock, m_longestWait, hasTurn);
    --entry.nWaiting;
    if (!inTime) {
        NoteTimeOut(entry);
        m_ended.notify_all();  // who still waits may be refused now
    }
    if (!inTime || IsRefused(entry)) {
        return false;
    }
    ++entry.nRunning;
    return true;
}

void HttpTurns::End(in_addr host, Outcome outcome) {
    const std::lock_guard lock(m_mutex);
    Host& entry = m_hosts[host.s_addr];
    --entry.nRunning;
    if (outcome == Outcome::Answered) {
        entry.nTimeOuts = 0;
    } else if (outcome == Outcome::TimedOut) {
        NoteTimeOut(entry);
    }
    m_ended.notify_all();
}

bool HttpTurns::IsRefused(const Host& host) const {
    return host.nTimeOuts >= kTimeOutsUntilRefused && m_now() < host.lastTimeOut + kRefusedFor;
}

void HttpTurns::NoteTimeOut(Host& host) const {
    const Clock::time_point now = m_now();
    host.nTimeOuts = now < host.lastTimeOut + kRefusedFor ? host.nTimeOuts + 1 : 1;
    host.lastTimeOut = now;
}

// Drops what says nothing any more, and where all say something, what nobody uses.
void HttpTurns::MakeRoom() {
    if (m_hosts.size() < kMostHosts) {
        return;
    }
    const auto unused = [](const auto& item) {
        return item.second.nRunning == 0 && item.second.nWaiting == 0;
    };
    std::erase_if(m_hosts,
                  [&](const auto& item) { return unused(item) && !IsRefused(item.second); });
    if (m_hosts.size() >= kMostHosts) {
        std::erase_if(m_hosts, unused);
    }
}
