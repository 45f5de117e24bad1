#include "tools/lanscout-sim/onvif/responder.h"

#include "tools/lanscout-sim/onvif/matching.h"
#include "tools/lanscout-sim/onvif/reply.h"

namespace lansim {
namespace {

constexpr int kDuplicates = 3;
constexpr std::uint32_t kInstanceId = 1;

}  // namespace

Responder::Responder(std::vector<Camera>& cameras, const ResponderOptions& options, Outbox& outbox)
    : m_cameras(cameras), m_options(options), m_outbox(outbox), m_random(options.seed) {
    for (auto& camera : cameras) {
        m_byAddress.emplace(camera.ip, &camera);
    }
}

void Responder::OnDatagram(const Datagram& datagram, TimePoint now) {
    ++m_counts.datagrams;
    const auto parsed = ParseProbe(datagram.payload);
    if (const auto* error = std::get_if<ProbeError>(&parsed)) {
        ++m_counts.refused[*error];
        return;
    }
    ++m_counts.probes;
    const auto probe = std::make_shared<const Probe>(std::get<Probe>(parsed));
    if (datagram.to.ip == kMulticastGroup) {
        for (auto& camera : m_cameras) {
            Ask(camera, probe, datagram.from, now);
        }
        return;
    }
    const auto [first, last] = m_byAddress.equal_range(datagram.to.ip);
    for (auto entry = first; entry != last; ++entry) {
        if (IsFor(datagram, entry->first, entry->second->mac)) {
            Ask(*entry->second, probe, datagram.from, now);
        }
    }
}

void Responder::Ask(Camera& camera, const std::shared_ptr<const Probe>& probe, Endpoint from,
                    TimePoint now) {
    if (m_random.Chance(m_options.probeLoss)) {
        ++m_counts.probesLost;
        return;
    }
    ++camera.probesSeen;
    if (camera.Does(Misbehaviour::Silent) || !Matches(*probe, camera)) {
        return;
    }
    const TimePoint due = now + m_random.UpTo(m_options.maxDelay);
    const Endpoint own{camera.ip, kDiscoveryPort};
    if (camera.Does(Misbehaviour::EmptyDatagram)) {
        m_outbox.Add(due,
                     {own, from, [] { return std::string(); }, &camera.repliesSent, camera.mac});
    }
    const auto answer = std::make_shared<Answer>(Answer{&camera, probe, {}});
    for (int i = 0; i < (camera.Does(Misbehaviour::Duplicate) ? kDuplicates : 1); ++i) {
        m_outbox.Add(due, {own, from, [this, answer] { return TextOf(*answer); },
                           &camera.repliesSent, camera.mac});
    }
}

const std::string& Responder::TextOf(Answer& answer) {
    if (answer.text.empty()) {
        answer.text = BuildReply(
            *answer.camera, *answer.probe,
            {"urn:uuid:" + m_random.Uuid(), kInstanceId, ++answer.camera->messageNumber});
    }
    return answer.text;
}

}  // namespace lansim
