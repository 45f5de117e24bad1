#include "tools/lanscout-sim/upnp/upnpresponder.h"

#include <algorithm>
#include <utility>

namespace lansim {
namespace {

constexpr Endpoint kGroup{kMulticastGroup, kSsdpPort};
constexpr std::chrono::seconds kChatEvery{1};
// UPnP Device Architecture 1.1, 1.2.2: wait a little before the first notice, and send each more
// than once.
constexpr std::chrono::milliseconds kFirstWithin{100};
constexpr std::chrono::milliseconds kRepeatAfter{300};
constexpr int kRepeats = 3;
// Distinct locations in one device's answer to one search.
constexpr unsigned kFloodSize = 200;
// How many different questions are counted; who asks more begins anew.
constexpr std::size_t kMostQuestions = 4096;

// What a draw is for: each purpose has a chance of its own.
enum class Draw : std::uint64_t { SearchLoss, Delay, AnswerLoss, FirstNotice, Refresh, Byebye };

Random DrawFor(std::uint64_t seed, const UpnpDevice& device, std::uint64_t message, Draw purpose) {
    return {seed,
            {KeyOf(device.uuid), KeyOf(device.name), device.ip.value, message,
             100 + static_cast<std::uint64_t>(purpose)}};
}

}  // namespace

UpnpResponder::UpnpResponder(std::deque<UpnpDevice>& devices, const UpnpResponderOptions& options,
                             Outbox& outbox)
    : m_devices(devices), m_options(options), m_outbox(outbox) {}

SearchOutcome UpnpResponder::OnDatagram(const Datagram& datagram, TimePoint now) {
    ++m_counts.datagrams;
    const bool isToGroup = datagram.to.ip == kMulticastGroup;
    const auto rules = m_options.isLenient ? SsdpRules::Lenient
                       : isToGroup         ? SsdpRules::Multicast
                                           : SsdpRules::Unicast;
    const auto parsed = ParseSearch(datagram.payload, rules);
    if (const auto* error = std::get_if<SsdpError>(&parsed)) {
        ++m_counts.refused[*error];
        return {std::nullopt, *error, 0};
    }
    ++m_counts.searches;
    const auto& search = std::get<SsdpSearch>(parsed);
    SearchOutcome outcome{search, std::nullopt, 0};
    const auto key = KeyFor(search, datagram.from.ip);
    for (auto& device : m_devices) {
        const bool isAsked =
            device.isPresent && (isToGroup || IsFor(datagram, device.ip, device.mac));
        outcome.answers += isAsked && Ask(device, search, key, datagram.from, now) ? 1 : 0;
    }
    return outcome;
}

std::uint64_t UpnpResponder::KeyFor(const SsdpSearch& search, const IpAddress& from) {
    const auto content = KeyOf(search.target);
    if (m_timesAsked.size() >= kMostQuestions) {
        m_timesAsked.clear();
    }
    return Random(content, {m_timesAsked[content ^ KeyOf(ToText(from))]++}).Next();
}

bool UpnpResponder::Ask(UpnpDevice& device, const SsdpSearch& search, std::uint64_t key,
                        Endpoint from, TimePoint now) {
    const auto draw = [&](Draw purpose) { return DrawFor(m_options.seed, device, key, purpose); };
    if (draw(Draw::SearchLoss).Chance(m_options.searchLoss)) {
        ++m_counts.searchesLost;
        return false;
    }
    ++device.searchesSeen;
    const auto identities = IdentitiesFor(device, search.target);
    if (device.isMuted || device.Does(Misbehaviour::UpnpAdvertiseOnly) || identities.empty()) {
        return false;
    }
    const auto longest = std::min<std::chrono::milliseconds>(
        m_options.maxDelay, std::chrono::seconds(search.longestWaitSeconds));
    Random delays = draw(Draw::Delay);
    Random losses = draw(Draw::AnswerLoss);
    const unsigned repeats = device.Does(Misbehaviour::UpnpFlood) ? kFloodSize : 1;
    for (const auto& identity : identities) {
        for (unsigned i = 0; i < repeats; ++i) {
            std::string text = SearchAnswer(device, identity, LocationOf(device, device.flood++));
            m_outbox.Add(now + delays.UpTo(longest), {{device.ip, kSsdpPort},
                                                      from,
                                                      [text = std::move(text)] { return text; },
                                                      &device.answersSent,
                                                      device.mac,
                                                      losses.Next()});
        }
    }
    return true;
}

void UpnpResponder::SayAlive(TimePoint now) {
    for (auto& device : m_devices) {
        if (device.isPresent) {
            SayAlive(device, now);
        }
    }
}

void UpnpResponder::SayAlive(UpnpDevice& device, TimePoint now) {
    Random random = DrawFor(m_options.seed, device, 0, Draw::FirstNotice);
    TimePoint due = now + random.UpTo(kFirstWithin);
    for (int i = 0; i < kRepeats; ++i) {
        SayAliveOnce(device, due, random.Next());
        due += kRepeatAfter;
    }
    PlanRefresh(device, 1, now);
}

void UpnpResponder::SayAliveOnce(UpnpDevice& device, TimePoint due, std::uint64_t draw) {
    Random losses(draw);
    for (std::size_t i = 0; i < IdentitiesOf(device).size(); ++i) {
        // Written when it is sent: of many devices that is less to keep.
        const auto text = [&device, i] {
            return AliveNotice(device, IdentitiesOf(device)[i], LocationOf(device));
        };
        m_outbox.Add(due, {{device.ip, kSsdpPort},
                           kGroup,
                           text,
                           &device.advertisementsSent,
                           device.mac,
                           losses.Next()});
    }
}

void UpnpResponder::PlanRefresh(UpnpDevice& device, std::uint64_t number, TimePoint now) {
    // A quarter to a half of the notice's life.
    const auto quarter = std::chrono::seconds(kMaxAgeSeconds) / 4;
    const auto pause =
        device.Does(Misbehaviour::UpnpChatty)
            ? std::chrono::microseconds(kChatEvery)
            : quarter + DrawFor(m_options.seed, device, number, Draw::Refresh).UpTo(quarter);
    m_refreshes.push({now + pause, &device, number, device.starts});
}

void UpnpResponder::SayByebye(TimePoint now) {
    m_refreshes = {};
    for (auto& device : m_devices) {
        if (device.isPresent) {
            SayByebye(device, now);
        }
    }
}

void UpnpResponder::SayByebye(UpnpDevice& device, TimePoint now) {
    Random losses = DrawFor(m_options.seed, device, 0, Draw::Byebye);
    for (const auto& identity : IdentitiesOf(device)) {
        std::string text = ByebyeNotice(identity);
        m_outbox.Add(now, {{device.ip, kSsdpPort},
                           kGroup,
                           [text = std::move(text)] { return text; },
                           &device.advertisementsSent,
                           device.mac,
                           losses.Next()});
    }
}

std::optional<TimePoint> UpnpResponder::NextDue() const {
    if (m_refreshes.empty()) {
        return std::nullopt;
    }
    return m_refreshes.top().due;
}

void UpnpResponder::Run(TimePoint now) {
    while (!m_refreshes.empty() && m_refreshes.top().due <= now) {
        const Refresh refresh = m_refreshes.top();
        m_refreshes.pop();
        UpnpDevice& device = *refresh.device;
        // Who joined again since has a plan of its own.
        if (!device.isPresent || refresh.start != device.starts) {
            continue;
        }
        const auto draw = DrawFor(m_options.seed, device, refresh.number, Draw::Refresh).Next();
        SayAliveOnce(device, now, draw);
        PlanRefresh(device, refresh.number + 1, now);
    }
}

}  // namespace lansim
