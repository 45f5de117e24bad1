// The cameras' side of WS-Discovery.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <vector>

#include "tools/lanscout-sim/base/random.h"
#include "tools/lanscout-sim/network/outbox.h"
#include "tools/lanscout-sim/onvif/camera.h"
#include "tools/lanscout-sim/onvif/probe.h"

namespace lansim {

struct ResponderOptions {
    std::uint64_t seed = 1;
    std::chrono::milliseconds maxDelay{500};
    double probeLoss = 0;  // 0 to 1, for each camera and Probe
};

struct ResponderCounts {
    std::uint64_t datagrams = 0;
    std::uint64_t probes = 0;
    std::map<ProbeError, std::uint64_t> refused;
    std::uint64_t probesLost = 0;
};

// The cameras' side of WS-Discovery: takes datagrams, and puts the replies into the outbox.
class Responder {
public:
    // Cameras and outbox stay the caller's and outlive the responder; no camera may be added or
    // removed meanwhile.
    Responder(std::vector<Camera>& cameras, const ResponderOptions& options, Outbox& outbox);

    void OnDatagram(const Datagram& datagram, TimePoint now);

    const ResponderCounts& Counts() const { return m_counts; }

private:
    // What a camera says to one Probe: written when it is first sent, and the same in each copy.
    struct Answer {
        Camera* camera = nullptr;
        std::shared_ptr<const Probe> probe;
        std::string text;
    };

    void Ask(Camera& camera, const std::shared_ptr<const Probe>& probe, Endpoint from,
             TimePoint now);
    const std::string& TextOf(Answer& answer);

    std::vector<Camera>& m_cameras;
    ResponderOptions m_options;
    Outbox& m_outbox;
    ResponderCounts m_counts;
    Random m_random;
    std::multimap<Ipv4, Camera*> m_byAddress;
};

}  // namespace lansim
