// Datagrams that wait for the time at which they are sent.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "tools/lanscout-sim/base/random.h"
#include "tools/lanscout-sim/base/timepoint.h"
#include "tools/lanscout-sim/network/network.h"

namespace lansim {

struct OutboxCounts {
    std::uint64_t sent = 0;
    std::uint64_t lost = 0;      // on purpose
    std::uint64_t repeated = 0;  // a queue was full, tried again a little later
    std::uint64_t failed = 0;
};

struct Outgoing {
    Endpoint from;
    Endpoint to;
    std::function<std::string()> write;  // called when it is sent
    std::uint64_t* sentCount = nullptr;  // counted up when it has been sent; may be null
    Mac mac{};                           // the sender's, where several share its IP address
    std::uint64_t draw = 0;              // what the chance that it is lost comes from
};

// Datagrams that wait for their time. Time is an argument, so that tests own it.
class Outbox {
public:
    // `loss` is the probability, 0 to 1, with which a datagram is dropped.
    Outbox(std::uint64_t seed, double loss) : m_seed(seed), m_loss(loss) {}

    void Add(TimePoint due, Outgoing outgoing);
    // When the next one is due; nothing when none waits.
    std::optional<TimePoint> NextDue() const;
    void SendDue(TimePoint now, Network& network);

    const OutboxCounts& Counts() const { return m_counts; }

private:
    struct Entry {
        TimePoint due;
        std::uint64_t order = 0;             // those due at once leave in the order they came
        std::unique_ptr<Outgoing> outgoing;  // so that an entry is cheap to move

        bool operator>(const Entry& other) const {
            return std::tie(due, order) > std::tie(other.due, other.order);
        }
    };

    void Deliver(Entry entry, TimePoint now, Network& network);

    std::uint64_t m_seed;
    double m_loss;
    OutboxCounts m_counts;
    std::vector<Entry> m_waiting;  // a heap, the next one first
    std::uint64_t m_nextOrder = 0;
};

}  // namespace lansim
