#pragma once

#include <array>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <queue>
#include <random>
#include <vector>

#include "tools/lanscout-sim/camera.h"
#include "tools/lanscout-sim/network.h"
#include "tools/lanscout-sim/probe.h"

namespace lansim {

using TimePoint = std::chrono::steady_clock::time_point;

struct ResponderOptions {
    std::uint64_t seed = 1;
    std::chrono::milliseconds maxDelay{500};
    double probeLoss = 0;  // 0 to 1, for each camera and Probe
    double replyLoss = 0;  // 0 to 1, for each reply
};

struct ResponderCounts {
    std::uint64_t datagrams = 0;
    std::uint64_t probes = 0;
    std::map<ProbeError, std::uint64_t> refused;
    std::uint64_t probesLost = 0;
    std::uint64_t repliesSent = 0;
    std::uint64_t repliesLost = 0;
    std::uint64_t sendsRepeated = 0;
    std::uint64_t sendsFailed = 0;
};

// The cameras' side of WS-Discovery: takes datagrams, and sends the replies when they are due.
// Time is an argument, so that tests own it.
class Responder {
public:
    // The cameras stay the caller's; none may be added or removed while the responder lives.
    Responder(std::vector<Camera>& cameras, const ResponderOptions& options);

    void OnDatagram(const Datagram& datagram, TimePoint now);
    // When the next reply is due; nothing when none waits.
    std::optional<TimePoint> NextDue() const;
    void SendDue(TimePoint now, Network& network);

    const ResponderCounts& Counts() const { return m_counts; }

private:
    // What a camera says to one Probe: written when it is first sent, and the same in each copy.
    struct Answer {
        std::size_t camera = 0;
        std::shared_ptr<const Probe> probe;
        std::string text;
    };

    struct Reply {
        TimePoint due;
        std::uint64_t order = 0;  // replies due at once leave in the order they were made
        std::shared_ptr<Answer> answer;
        Endpoint to;
        bool isEmpty = false;

        bool operator>(const Reply& other) const {
            return std::tie(due, order) > std::tie(other.due, other.order);
        }
    };

    void Ask(std::size_t index, const std::shared_ptr<const Probe>& probe, Endpoint from,
             TimePoint now);
    void Schedule(Reply reply);
    void Deliver(Reply reply, TimePoint now, Network& network);
    const std::string& TextOf(Answer& answer);
    bool Chance(double probability);
    std::chrono::microseconds Delay();

    std::vector<Camera>& m_cameras;
    ResponderOptions m_options;
    ResponderCounts m_counts;
    std::mt19937_64 m_random;
    std::map<Ipv4, std::size_t> m_byAddress;
    std::priority_queue<Reply, std::vector<Reply>, std::greater<>> m_waiting;
    std::uint64_t m_nextOrder = 0;
};

}  // namespace lansim
