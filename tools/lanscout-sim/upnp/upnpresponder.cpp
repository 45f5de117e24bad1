#include "tools/lanscout-sim/upnp/upnpresponder.h"

#include <algorithm>
#include <utility>

namespace lansim {
namespace {

constexpr Endpoint kGroup{kMulticastGroup, kSsdpPort};
constexpr std::chrono::seconds kChatEvery{1};
// Distinct locations in one device's answer to one search.
constexpr unsigned kFloodSize = 200;

}  // namespace

UpnpResponder::UpnpResponder(std::vector<UpnpDevice>& devices, const UpnpResponderOptions& options,
                             Outbox& outbox)
    : m_devices(devices), m_options(options), m_outbox(outbox), m_random(options.seed) {}

void UpnpResponder::OnDatagram(const Datagram& datagram, TimePoint now) {
    ++m_counts.datagrams;
    const auto search = ParseSearch(datagram.payload);
    if (!search) {
        return;
    }
    ++m_counts.searches;
    for (auto& device : m_devices) {
        if (datagram.to.ip == kMulticastGroup || IsFor(datagram, device.ip, device.mac)) {
            Ask(device, *search, datagram.from, now);
        }
    }
}

void UpnpResponder::Ask(UpnpDevice& device, const SsdpSearch& search, Endpoint from,
                        TimePoint now) {
    if (m_random.Chance(m_options.searchLoss)) {
        ++m_counts.searchesLost;
        return;
    }
    ++device.searchesSeen;
    if (device.Does(Misbehaviour::UpnpAdvertiseOnly)) {
        return;
    }
    const auto longest = std::min<std::chrono::milliseconds>(
        m_options.maxDelay, std::chrono::seconds(search.longestWaitSeconds));
    const unsigned repeats = device.Does(Misbehaviour::UpnpFlood) ? kFloodSize : 1;
    for (const auto& identity : IdentitiesFor(device, search.target)) {
        for (unsigned i = 0; i < repeats; ++i) {
            std::string text =
                SearchAnswer(device, identity, LocationOf(device, m_nextFloodNumber++));
            m_outbox.Add(now + m_random.UpTo(longest), {{device.ip, kSsdpPort},
                                                        from,
                                                        [text = std::move(text)] { return text; },
                                                        &device.answersSent,
                                                        device.mac});
        }
    }
}

void UpnpResponder::SayAlive(TimePoint now) {
    for (auto& device : m_devices) {
        SayAlive(device, now);
        if (device.Does(Misbehaviour::UpnpChatty)) {
            m_nextChat = now + kChatEvery;
        }
    }
}

void UpnpResponder::SayAlive(UpnpDevice& device, TimePoint now) {
    for (const auto& identity : IdentitiesOf(device)) {
        std::string text = AliveNotice(device, identity, LocationOf(device));
        m_outbox.Add(now, {{device.ip, kSsdpPort},
                           kGroup,
                           [text = std::move(text)] { return text; },
                           &device.advertisementsSent,
                           device.mac});
    }
}

void UpnpResponder::SayByebye(TimePoint now) {
    m_nextChat.reset();
    for (auto& device : m_devices) {
        for (const auto& identity : IdentitiesOf(device)) {
            std::string text = ByebyeNotice(identity);
            m_outbox.Add(now, {{device.ip, kSsdpPort},
                               kGroup,
                               [text = std::move(text)] { return text; },
                               &device.advertisementsSent,
                               device.mac});
        }
    }
}

void UpnpResponder::Run(TimePoint now) {
    if (!m_nextChat || now < *m_nextChat) {
        return;
    }
    for (auto& device : m_devices) {
        if (device.Does(Misbehaviour::UpnpChatty)) {
            SayAlive(device, now);
        }
    }
    m_nextChat = now + kChatEvery;
}

}  // namespace lansim
