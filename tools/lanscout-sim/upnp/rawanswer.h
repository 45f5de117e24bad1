// HTTP answers that break HTTP.
#pragma once

#include <optional>
#include <string>

#include "tools/lanscout-sim/network/descriptor.h"
#include "tools/lanscout-sim/network/outbox.h"
#include "tools/lanscout-sim/upnp/upnpdevice.h"

namespace lansim {

// Whether the device's description is served in a way that no HTTP server would.
bool HasRawAnswer(const UpnpDevice& device);

// One connection to such a device: waits for the request, then answers against the rules.
class RawAnswer {
public:
    RawAnswer(lansim::Descriptor connection, const UpnpDevice& device);

    // Reads and writes what can be without waiting. False when the connection is over.
    bool Run(TimePoint now);
    std::optional<TimePoint> NextDue() const { return m_nextDue; }

private:
    bool ReadRequest();
    void Prepare(TimePoint now);
    bool Dribble(TimePoint now);
    bool Send(std::string_view bytes) const;
    void Reset() const;

    lansim::Descriptor m_connection;
    const UpnpDevice& m_device;
    std::string m_request;
    std::string m_rest;  // what is still to be dribbled
    std::optional<TimePoint> m_nextDue;
    bool m_isAnswering = false;
};

}  // namespace lansim
