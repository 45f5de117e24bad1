// The UPnP devices' side of SSDP.
#pragma once

#include <chrono>
#include <optional>
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
};

struct UpnpResponderCounts {
    std::uint64_t datagrams = 0;
    std::uint64_t searches = 0;
    std::uint64_t searchesLost = 0;
};

// The devices' side of SSDP: answers searches and advertises, by way of the outbox.
class UpnpResponder {
public:
    // Devices and outbox stay the caller's and outlive the responder.
    UpnpResponder(std::vector<UpnpDevice>& devices, const UpnpResponderOptions& options,
                  Outbox& outbox);

    void OnDatagram(const Datagram& datagram, TimePoint now);
    void SayAlive(TimePoint now);
    void SayByebye(TimePoint now);
    // When the chatty devices want to advertise again; nothing when there are none.
    std::optional<TimePoint> NextDue() const { return m_nextChat; }
    void Run(TimePoint now);

    const UpnpResponderCounts& Counts() const { return m_counts; }

private:
    void Ask(UpnpDevice& device, const SsdpSearch& search, Endpoint from, TimePoint now);
    void SayAlive(UpnpDevice& device, TimePoint now);

    std::vector<UpnpDevice>& m_devices;
    UpnpResponderOptions m_options;
    Outbox& m_outbox;
    UpnpResponderCounts m_counts;
    Random m_random;
    unsigned m_nextFloodNumber = 0;
    std::optional<TimePoint> m_nextChat;
};

}  // namespace lansim
