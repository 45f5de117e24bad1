// Who of many hosts the HTTP client may ask at a moment, so that a few that do not answer cannot
// keep it from all others: requests come from the few threads that deliver discovery messages, and
// anyone on the network can name a host that hangs.
#pragma once

#include <netinet/in.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>

class HttpTurns {
public:
    using Clock = std::chrono::steady_clock;

    // A quarter of libupnp's 12 threads.
    static constexpr int kRequestsAtOnce = 3;
    // A host that answers has a turn free in time for a dozen descriptions at once.
    static constexpr std::chrono::milliseconds kLongestWait{1000};
    static constexpr int kTimeOutsUntilRefused = 2;
    // So that a device that hung for a while is found again by a later search.
    static constexpr std::chrono::seconds kRefusedFor{60};
    // More than a search meets, and a bound for what invented addresses cost.
    static constexpr std::size_t kMostHosts = 4096;

    enum class Outcome { Answered, Failed, TimedOut };

    // Both are a test's own. `now` is asked under the lock.
    explicit HttpTurns(std::function<Clock::time_point()> now = Clock::now,
                       std::chrono::milliseconds longestWait = kLongestWait);

    // Waits for a turn at `host`. False without one: the host timed out too often, or all of its
    // turns stayed taken for the longest wait, which counts as a time-out of it. True: the caller
    // says by End what came of it.
    bool Begin(in_addr host);
    void End(in_addr host, Outcome outcome);

    // How many hosts are remembered at the moment.
    std::size_t Remembered() const { return m_hosts.size(); }

private:
    struct Host {
        int nRunning = 0;
        int nWaiting = 0;
        int nTimeOuts = 0;  // since it last answered
        Clock::time_point lastTimeOut{};
    };

    bool IsRefused(const Host& host) const;
    void NoteTimeOut(Host& host) const;
    void MakeRoom();

    std::function<Clock::time_point()> m_now;
    std::chrono::milliseconds m_longestWait;
    std::mutex m_mutex;
    std::condition_variable m_ended;
    std::map<std::uint32_t, Host> m_hosts;  // by address in network order
};
