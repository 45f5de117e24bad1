// The devices' side of SSDP.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <queue>
#include <string>
#include <vector>

#include "tools/lanscout-sim/base/random.h"
#include "tools/lanscout-sim/network/outbox.h"
#include "tools/lanscout-sim/upnp/ssdp.h"
#include "tools/lanscout-sim/upnp/upnpdevice.h"

namespace lansim {

struct UpnpResponderOptions {
    std::uint64_t seed = 1;
    std::chrono::milliseconds maxDelay{500};
    double searchLoss = 0;  // 0 to 1, for each device and search
    bool isLenient = false;
};

struct UpnpResponderCounts {
    std::uint64_t datagrams = 0;
    std::uint64_t searches = 0;
    std::map<SsdpError, std::uint64_t> refused;
    std::uint64_t searchesLost = 0;
};

// What became of one datagram.
struct SearchOutcome {
    std::optional<SsdpSearch> search;
    std::optional<SsdpError> refused;
    std::size_t answers = 0;  // devices that will answer
};

// Answers searches and advertises, by way of the outbox.
class UpnpResponder {
public:
    // Devices and outbox stay the caller's and outlive the responder.
    UpnpResponder(std::deque<UpnpDevice>& devices, const UpnpResponderOptions& options,
                  Outbox& outbox);

    SearchOutcome OnDatagram(const Datagram& datagram, TimePoint now);
    // All devices, within a tenth of a second and then twice more, as a notice may be lost; from
    // then on again before half of a notice's life is over.
    void SayAlive(TimePoint now);
    void SayByebye(TimePoint now);
    // One device alone.
    void SayAlive(UpnpDevice& device, TimePoint now);
    void SayByebye(UpnpDevice& device, TimePoint now);
    // When devices want to advertise again; nothing when there are none.
    std::optional<TimePoint> NextDue() const;
    void Run(TimePoint now);

    const UpnpResponderCounts& Counts() const { return m_counts; }

private:
    struct Refresh {
        TimePoint due;
        UpnpDevice* device = nullptr;
        std::uint64_t number = 0;
        unsigned start = 0;
        bool operator>(const Refresh& other) const { return due > other.due; }
    };

    bool Ask(UpnpDevice& device, const SsdpSearch& search, std::uint64_t key, Endpoint from,
             TimePoint now);
    std::uint64_t KeyFor(const SsdpSearch& search, const IpAddress& from);
    void SayAliveOnce(UpnpDevice& device, TimePoint due, std::uint64_t draw);
    void PlanRefresh(UpnpDevice& device, std::uint64_t number, TimePoint now);

    std::deque<UpnpDevice>& m_devices;
    UpnpResponderOptions m_options;
    Outbox& m_outbox;
    UpnpResponderCounts m_counts;
    std::map<std::uint64_t, std::uint64_t> m_timesAsked;  // the same thing by the same asker
    std::priority_queue<Refresh, std::vector<Refresh>, std::greater<>> m_refreshes;
};

}  // namespace lansim
