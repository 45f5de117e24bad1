// The cameras' side of WS-Discovery.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/lanscout-sim/network/outbox.h"
#include "tools/lanscout-sim/onvif/camera.h"
#include "tools/lanscout-sim/onvif/probe.h"
#include "tools/lanscout-sim/onvif/recentmessages.h"

namespace lansim {

struct ResponderOptions {
    std::uint64_t seed = 1;
    std::chrono::milliseconds maxDelay{500};
    double probeLoss = 0;  // 0 to 1, for each camera and Probe
    Strictness strictness = Strictness::Strict;
};

struct ResponderCounts {
    std::uint64_t datagrams = 0;
    std::uint64_t probes = 0;
    std::uint64_t resolves = 0;
    std::map<ProbeError, std::uint64_t> refused;
    std::uint64_t probesLost = 0;
};

// What became of one datagram.
struct ProbeOutcome {
    std::shared_ptr<const Probe> probe;  // null when it could not be read
    std::optional<ProbeError> refused;
    std::size_t answers = 0;  // cameras that will answer
};

// Takes datagrams, and puts the replies into the outbox.
class Responder {
public:
    // Cameras and outbox stay the caller's and outlive the responder; no camera may be removed.
    Responder(std::deque<Camera>& cameras, const ResponderOptions& options, Outbox& outbox);

    ProbeOutcome OnDatagram(const Datagram& datagram, TimePoint now);

    // Multicasts that the camera is there, after up to half a second, or that it leaves.
    void SayHello(Camera& camera, TimePoint now);
    void SayBye(Camera& camera, TimePoint now);
    // To be called when a camera was added or has another address.
    void NoticeChanges();

    const ResponderCounts& Counts() const { return m_counts; }

private:
    // A message that all cameras are asked about.
    struct Question {
        std::shared_ptr<const Probe> probe;
        Endpoint from;
        std::uint64_t key = 0;  // stands for it in draws
        TimePoint now;
    };
    // What a camera says to one Probe: written when it is first sent, and the same in each copy.
    struct Answer {
        const Camera* camera = nullptr;
        std::shared_ptr<const Probe> probe;
        std::uint64_t key = 0;
        std::uint32_t messageNumber = 0;
        std::string text;
    };
    enum class Reaction { Answers, IsSilent, HeardBefore };

    std::uint64_t KeyFor(const Probe& probe, const IpAddress& from);
    bool IsAddressedTo(const Probe& probe, const Camera& camera) const;
    void AskAll(const Question& question, ProbeOutcome& outcome);
    void AskAt(const Datagram& datagram, const Question& question, ProbeOutcome& outcome);
    Reaction Ask(std::size_t number, const Question& question);
    void Announce(Camera& camera, TimePoint due, bool isHello);
    void Reply(Camera& camera, const Question& question);
    const std::string& TextOf(Answer& answer) const;

    std::deque<Camera>& m_cameras;
    ResponderOptions m_options;
    Outbox& m_outbox;
    ResponderCounts m_counts;
    RecentMessages m_recent;
    std::map<std::uint64_t, std::uint64_t> m_timesAsked;  // the same thing by the same asker
    std::multimap<IpAddress, std::size_t> m_byAddress;    // several devices may share one
};

}  // namespace lansim
