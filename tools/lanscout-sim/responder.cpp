#include "tools/lanscout-sim/responder.h"

#include <utility>

#include "tools/lanscout-sim/matching.h"
#include "tools/lanscout-sim/reply.h"
#include "tools/lanscout-sim/uuid.h"

namespace lansim {
namespace {

constexpr int kDuplicates = 3;
constexpr std::chrono::milliseconds kRetryPause{1};
constexpr std::uint32_t kInstanceId = 1;

}  // namespace

Responder::Responder(std::vector<Camera>& cameras, const ResponderOptions& options)
    : m_cameras(cameras), m_options(options), m_random(options.seed) {
    for (std::size_t i = 0; i < cameras.size(); ++i)
        m_byAddress.emplace(cameras[i].ip, i);
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
        for (std::size_t i = 0; i < m_cameras.size(); ++i)
            Ask(i, probe, datagram.from, now);
    } else if (const auto found = m_byAddress.find(datagram.to.ip); found != m_byAddress.end()) {
        Ask(found->second, probe, datagram.from, now);
    }
}

void Responder::Ask(std::size_t index, const std::shared_ptr<const Probe>& probe, Endpoint from,
                    TimePoint now) {
    Camera& camera = m_cameras[index];
    if (Chance(m_options.probeLoss)) {
        ++m_counts.probesLost;
        return;
    }
    ++camera.probesSeen;
    if (camera.Does(Misbehaviour::Silent) || !Matches(*probe, camera))
        return;
    const auto answer = std::make_shared<Answer>(Answer{index, probe, {}});
    const Reply reply{now + Delay(), 0, answer, from, false};
    if (camera.Does(Misbehaviour::EmptyDatagram)) {
        Reply empty = reply;
        empty.isEmpty = true;
        Schedule(empty);
    }
    for (int i = 0; i < (camera.Does(Misbehaviour::Duplicate) ? kDuplicates : 1); ++i)
        Schedule(reply);
}

void Responder::Schedule(Reply reply) {
    if (Chance(m_options.replyLoss)) {
        ++m_counts.repliesLost;
        return;
    }
    reply.order = m_nextOrder++;
    m_waiting.push(std::move(reply));
}

std::optional<TimePoint> Responder::NextDue() const {
    if (m_waiting.empty())
        return std::nullopt;
    return m_waiting.top().due;
}

void Responder::SendDue(TimePoint now, Network& network) {
    while (!m_waiting.empty() && m_waiting.top().due <= now) {
        Reply reply = m_waiting.top();
        m_waiting.pop();
        Deliver(std::move(reply), now, network);
    }
}

void Responder::Deliver(Reply reply, TimePoint now, Network& network) {
    Camera& camera = m_cameras[reply.answer->camera];
    const std::string text = reply.isEmpty ? "" : TextOf(*reply.answer);
    switch (network.Send({{camera.ip, kDiscoveryPort}, reply.to, text})) {
        case SendResult::Sent:
            ++m_counts.repliesSent;
            ++camera.repliesSent;
            return;
        case SendResult::TryAgain:
            ++m_counts.sendsRepeated;
            reply.due = now + kRetryPause;
            m_waiting.push(std::move(reply));
            return;
        case SendResult::Failed:
            ++m_counts.sendsFailed;
            return;
    }
}

const std::string& Responder::TextOf(Answer& answer) {
    if (answer.text.empty()) {
        Camera& camera = m_cameras[answer.camera];
        answer.text =
            BuildReply(camera, *answer.probe,
                       {"urn:uuid:" + RandomUuid(m_random), kInstanceId, ++camera.messageNumber});
    }
    return answer.text;
}

// Not std::uniform_*_distribution: what those draw differs from one standard library to another,
// and a seed shall mean the same run everywhere.
bool Responder::Chance(double probability) {
    constexpr double kTwoTo53 = 9007199254740992.0;
    return probability > 0 && static_cast<double>(m_random() >> 11) / kTwoTo53 < probability;
}

std::chrono::microseconds Responder::Delay() {
    const auto range = std::chrono::microseconds(m_options.maxDelay).count() + 1;
    return std::chrono::microseconds(m_random() % static_cast<std::uint64_t>(range));
}

}  // namespace lansim
