#include "tools/lanscout-sim/onvif/responder.h"

#include <utility>

#include "tools/lanscout-sim/base/random.h"
#include "tools/lanscout-sim/onvif/matching.h"
#include "tools/lanscout-sim/onvif/reply.h"

namespace lansim {
namespace {

constexpr int kDuplicates = 3;
constexpr int kZeroLengthStorm = 50;
// How far apart copies come (SOAP-over-UDP, UDP_MIN_DELAY and UDP_MAX_DELAY).
constexpr std::chrono::milliseconds kLeastPause{50};
constexpr std::chrono::milliseconds kMostPause{250};
// How many different questions are counted; who asks more begins anew.
constexpr std::size_t kMostQuestions = 4096;

// What a draw is for: each purpose has a chance of its own.
enum class Draw : std::uint64_t { ProbeLoss, Delay, Pause, ReplyLoss, MessageId };

Random DrawFor(std::uint64_t seed, const Camera& camera, std::uint64_t message, Draw purpose) {
    return {seed,
            {KeyOf(camera.uuid), KeyOf(camera.name), camera.ip.value, message,
             static_cast<std::uint64_t>(purpose)}};
}

// All of a Probe but its MessageID: clients give each a new one, and yet two runs of the same
// client shall be the same.
std::string ContentOf(const Probe& probe) {
    std::string content = probe.kind == RequestKind::Probe ? "probe" : "resolve";
    for (const auto& type : probe.types) {
        content += "\n" + type.uri + " " + type.local;
    }
    for (const auto& scope : probe.scopes) {
        content += "\n" + scope;
    }
    return content + "\n" + probe.matchBy + "\n" + probe.endpoint;
}

}  // namespace

Responder::Responder(std::deque<Camera>& cameras, const ResponderOptions& options, Outbox& outbox)
    : m_cameras(cameras), m_options(options), m_outbox(outbox) {
    NoticeChanges();
}

void Responder::NoticeChanges() {
    m_byAddress.clear();
    for (std::size_t i = 0; i < m_cameras.size(); ++i) {
        m_byAddress.emplace(m_cameras[i].ip, i);
        if (m_cameras[i].ipv6) {
            m_byAddress.emplace(*m_cameras[i].ipv6, i);
        }
    }
}

void Responder::SayHello(Camera& camera, TimePoint now) {
    const auto key = Random(KeyOf("hello"), {camera.instanceId, camera.messageNumber}).Next();
    // WS-Discovery 2005/04, 4.1: those that start together shall not speak together.
    const auto delay =
        DrawFor(m_options.seed, camera, key, Draw::Delay).UpTo(std::chrono::milliseconds(500));
    Announce(camera, now + delay, true);
}

void Responder::SayBye(Camera& camera, TimePoint now) {
    Announce(camera, now, false);
}

void Responder::Announce(Camera& camera, TimePoint due, bool isHello) {
    const IpAddress group = camera.hasIpv4 ? IpAddress(kMulticastGroup) : kMulticastGroup6;
    const auto own = camera.AddressTowards(group);
    if (!own) {
        return;
    }
    const std::uint32_t number = ++camera.messageNumber;
    const auto key = Random(KeyOf(isHello ? "hello" : "bye"), {camera.instanceId, number}).Next();
    const auto draw = [&](Draw purpose) {
        return DrawFor(m_options.seed, camera, key, purpose).Next();
    };
    const ReplyIds ids{"urn:uuid:" + Random(draw(Draw::MessageId)).Uuid(), camera.instanceId,
                       number};
    std::string text = isHello ? BuildHello(camera, ids) : BuildBye(camera, ids);
    m_outbox.Add(due, {{*own, kDiscoveryPort},
                       {group, kDiscoveryPort},
                       [text = std::move(text)] { return text; },
                       nullptr,
                       camera.mac,
                       draw(Draw::ReplyLoss)});
}

ProbeOutcome Responder::OnDatagram(const Datagram& datagram, TimePoint now) {
    ++m_counts.datagrams;
    ProbeOutcome outcome;
    auto parsed = ParseProbe(datagram.payload, m_options.strictness);
    if (const auto* error = std::get_if<ProbeError>(&parsed)) {
        outcome.refused = *error;
    } else {
        outcome.probe = std::make_shared<const Probe>(std::move(std::get<Probe>(parsed)));
        ++(outcome.probe->kind == RequestKind::Probe ? m_counts.probes : m_counts.resolves);
        const Question question{outcome.probe, datagram.from,
                                KeyFor(*outcome.probe, datagram.from.ip), now};
        if (datagram.to.ip == kMulticastGroup || datagram.to.ip == kMulticastGroup6) {
            AskAll(question, outcome);
        } else {
            AskAt(datagram, question, outcome);
        }
    }
    if (outcome.refused) {
        ++m_counts.refused[*outcome.refused];
    }
    return outcome;
}

std::uint64_t Responder::KeyFor(const Probe& probe, const IpAddress& from) {
    const std::uint64_t content = KeyOf(ContentOf(probe));
    if (m_timesAsked.size() >= kMostQuestions) {
        m_timesAsked.clear();
    }
    const auto times = m_timesAsked[content ^ KeyOf(ToText(from))]++;
    return Random(content, {times}).Next();
}

void Responder::AskAll(const Question& question, ProbeOutcome& outcome) {
    if (m_options.strictness == Strictness::Strict && question.probe->to != kDiscoveryTo) {
        outcome.refused = ProbeError::WrongTo;
        return;
    }
    bool isRepeated = false;
    for (std::size_t i = 0; i < m_cameras.size(); ++i) {
        const Reaction reaction = Ask(i, question);
        outcome.answers += reaction == Reaction::Answers ? 1 : 0;
        isRepeated = isRepeated || reaction == Reaction::HeardBefore;
    }
    if (isRepeated && outcome.answers == 0) {
        outcome.refused = ProbeError::Repeated;
    }
}

void Responder::AskAt(const Datagram& datagram, const Question& question, ProbeOutcome& outcome) {
    const auto [first, last] = m_byAddress.equal_range(datagram.to.ip);
    for (auto at = first; at != last; ++at) {
        if (!IsFor(datagram, at->first, m_cameras[at->second].mac)) {
            continue;
        }
        if (!IsAddressedTo(*question.probe, m_cameras[at->second])) {
            outcome.refused = ProbeError::WrongTo;
            continue;
        }
        const Reaction reaction = Ask(at->second, question);
        outcome.answers += reaction == Reaction::Answers ? 1 : 0;
        if (reaction == Reaction::HeardBefore) {
            outcome.refused = ProbeError::Repeated;
        }
    }
    if (outcome.answers > 0) {
        outcome.refused.reset();
    }
}

// A Probe that is sent to one device may name that device as well.
bool Responder::IsAddressedTo(const Probe& probe, const Camera& camera) const {
    return m_options.strictness == Strictness::Lenient || probe.to == kDiscoveryTo ||
           probe.to == EndpointOf(camera) || probe.to.starts_with("http://" + ToText(camera.ip)) ||
           (camera.ipv6 && probe.to.starts_with("http://[" + ToText(*camera.ipv6)));
}

Responder::Reaction Responder::Ask(std::size_t number, const Question& question) {
    Camera& camera = m_cameras[number];
    const Probe& probe = *question.probe;
    if (!camera.isPresent || !camera.AddressTowards(question.from.ip)) {
        return Reaction::IsSilent;
    }
    if (DrawFor(m_options.seed, camera, question.key, Draw::ProbeLoss)
            .Chance(m_options.probeLoss)) {
        ++m_counts.probesLost;
        return Reaction::IsSilent;
    }
    ++camera.probesSeen;
    if (m_options.strictness == Strictness::Strict &&
        !m_recent.IsNews(probe.messageId, number, question.now)) {
        return Reaction::HeardBefore;
    }
    if (camera.isMuted || camera.Does(Misbehaviour::Silent) || !Matches(probe, camera)) {
        return Reaction::IsSilent;
    }
    Reply(camera, question);
    return Reaction::Answers;
}

void Responder::Reply(Camera& camera, const Question& question) {
    const auto draw = [&](Draw purpose) {
        return DrawFor(m_options.seed, camera, question.key, purpose);
    };
    TimePoint due = question.now + (camera.delay ? std::chrono::microseconds(*camera.delay)
                                                 : draw(Draw::Delay).UpTo(m_options.maxDelay));
    Random losses = draw(Draw::ReplyLoss);
    const auto own = camera.AddressTowards(question.from.ip);
    const auto add = [&](std::function<std::string()> text) {
        m_outbox.Add(due, {{*own, kDiscoveryPort},
                           question.from,
                           std::move(text),
                           &camera.repliesSent,
                           camera.mac,
                           losses.Next()});
    };
    const bool isEmpty = camera.Does(Misbehaviour::EmptyAlone);
    const int empties = camera.Does(Misbehaviour::ZeroLength)                 ? kZeroLengthStorm
                        : isEmpty || camera.Does(Misbehaviour::EmptyDatagram) ? 1
                                                                              : 0;
    for (int i = 0; i < empties; ++i) {
        add([] { return std::string(); });
    }
    if (isEmpty) {
        return;
    }
    const auto answer = std::make_shared<Answer>(
        Answer{&camera, question.probe, draw(Draw::MessageId).Next(), ++camera.messageNumber, {}});
    Random pauses = draw(Draw::Pause);
    for (int i = 0; i < (camera.Does(Misbehaviour::Duplicate) ? kDuplicates : 1); ++i) {
        add([this, answer] { return TextOf(*answer); });
        due += kLeastPause + pauses.UpTo(kMostPause - kLeastPause);
    }
}

const std::string& Responder::TextOf(Answer& answer) const {
    if (answer.text.empty()) {
        answer.text = BuildReply(*answer.camera, *answer.probe,
                                 {"urn:uuid:" + Random(answer.key).Uuid(),
                                  answer.camera->instanceId, answer.messageNumber});
    }
    return answer.text;
}

}  // namespace lansim
