#include "finder/source/framejournal.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>

#include "finder/source/reply.h"
#include "finder/text/addresstext.h"
#include "finder/text/safetext.h"

namespace Lanscout {
namespace {

constexpr std::uint16_t kDiscoveryPort = 3702;  // WS-Discovery
constexpr std::size_t kMostReplies = 65536;
constexpr std::size_t kMostForeign = 4096;
constexpr std::size_t kMostStrangers = 16;  // told of; somebody may be flooding the wire
constexpr std::size_t kMostEndpointsOfReply = 64;

// A device answers a Probe within half a second (WS-Discovery's APP_MAX_DELAY), and asks for the
// address to answer to before that; lost requests come again after a second (RFC 1122, 2.3.2.1).
constexpr std::chrono::milliseconds kAfterProbe{1600};

// One for each device that the reply names, or an empty one.
std::vector<std::string> EndpointsOf(std::string_view payload) {
    std::vector<std::string> endpoints;
    if (const auto matches = ReadReply(payload)) {
        for (const ProbeMatch& match : *matches) {
            if (!match.endpoint.empty() && endpoints.size() < kMostEndpointsOfReply) {
                endpoints.push_back(match.endpoint);
            }
        }
    }
    if (endpoints.empty()) {
        endpoints.emplace_back();
    }
    return endpoints;
}

}  // namespace

FrameJournal::FrameJournal(std::vector<Target> targets, std::vector<AddressRange> asked,
                           Machine machine, Tell tell)
    : m_targets(std::move(targets)),
      m_asked(std::move(asked)),
      m_machine(std::move(machine)),
      m_tell(std::move(tell)) {}

void FrameJournal::TakeSent(const Frame& frame, const std::string& interface, Time now) {
    const auto* const datagram = std::get_if<DatagramFrame>(&frame);
    if (datagram != nullptr && datagram->toPort == kDiscoveryPort) {
        m_lastProbe[interface] = now;
    }
}

void FrameJournal::TakeReceived(const Frame& frame, const std::string& interface, Time now) {
    if (const auto* const request = std::get_if<ArpRequestFrame>(&frame)) {
        return TakeRequest(*request, interface, now);
    }
    const auto& datagram = std::get<DatagramFrame>(frame);
    if (datagram.fromPort == kDiscoveryPort && IsOurs(datagram.to, interface)) {
        TakeReply(datagram, interface);
    }
}

bool FrameJournal::IsOurs(const std::string& address, const std::string& interface) const {
    return std::any_of(
        m_machine.local.begin(), m_machine.local.end(), [&](const LocalAddress& one) {
            const auto has = [&](const Ipv6Address& ipv6) { return ipv6.address == address; };
            return IsSameInterface(one.interface, interface) &&
                   (one.address == address || std::any_of(one.ipv6.begin(), one.ipv6.end(), has));
        });
}

bool FrameJournal::IsAsked(const std::string& address) const {
    const auto value = Ipv4Value(address);
    return value && std::any_of(m_asked.begin(), m_asked.end(), [&](const AddressRange& range) {
               return range.first <= *value && *value <= range.last;
           });
}

void FrameJournal::TakeReply(const DatagramFrame& reply, const std::string& interface) {
    const bool local = IsInSubnetOf(m_machine.local, interface, reply.from);
    if (!local && IsAsked(reply.from)) {
        return;  // asked behind a router, whose MAC address the frame has
    }
    if (!m_memory.IsNews(reply.mac + reply.from, reply.payload)) {
        return;
    }
    for (const std::string& endpoint : EndpointsOf(reply.payload)) {
        TellReply(reply, interface, endpoint);
    }
    if (!local && IsIpv4Text(reply.from)) {
        TellDropped(reply.from, interface);
    }
}

void FrameJournal::TellReply(const DatagramFrame& reply, const std::string& interface,
                             const std::string& uuid) {
    if (m_replies.size() >= kMostReplies ||
        !m_replies.emplace(interface, reply.mac, reply.from, uuid).second) {
        return;
    }
    Sighting sighting;
    sighting.source = SourceId::Frames;
    sighting.via = TargetTowards(m_targets, m_machine.local, interface, reply.from);
    sighting.device.mac = reply.mac;
    sighting.device.uuid = uuid;
    sighting.device.reach =
        IsInSubnetOf(m_machine.local, interface, reply.from) ? Reach::Local : Reach::Foreign;
    if (IsIpv4Text(reply.from)) {
        sighting.device.ip = reply.from;
    } else {
        sighting.device.ipv6 = {WithZone(reply.from, interface)};
    }
    m_tell(SightingMessage{std::move(sighting)});
}

void FrameJournal::TellDropped(const std::string& address, const std::string& interface) {
    if (m_dropping.contains(interface) || !m_machine.drops(address, interface)) {
        return;
    }
    m_dropping.insert(interface);
    m_tell(NoticeMessage{
        TargetTowards(m_targets, m_machine.local, interface, address),
        fmt::format("the kernel drops the reply of {}, because no route leads back to it", address),
        fmt::format("It takes such replies after: sysctl -w net.ipv4.conf.all.rp_filter=0 "
                    "net.ipv4.conf.{}.rp_filter=0",
                    interface)});
}

void FrameJournal::TakeRequest(const ArpRequestFrame& request, const std::string& interface,
                               Time now) {
    constexpr const char* kNoAddressYet = "0.0.0.0";
    const bool foreign = request.from != kNoAddressYet && request.from != request.wanted &&
                         !IsInSubnetOf(m_machine.local, interface, request.from);
    const auto probe = m_lastProbe.find(interface);
    if (!foreign || probe == m_lastProbe.end() || now - probe->second > kAfterProbe) {
        return;
    }
    if (m_foreign.size() < kMostForeign) {
        m_foreign.insert({request.from, request.wanted});
    }
    if (m_strangers.size() >= kMostStrangers || !m_strangers.insert(request.mac).second) {
        return;
    }
    const std::string maker = m_machine.makerOf(request.mac);
    const std::string command =
        CommandToReach(request.from, interface,
                       [&](const std::string& address) { return m_foreign.contains(address); });
    m_tell(NoticeMessage{TargetTowards(m_targets, m_machine.local, interface, request.from),
                         fmt::format("a device of {} is on this wire: {} with MAC address {}{}",
                                     LikelySubnet(request.from), request.from, request.mac,
                                     maker.empty() ? "" : fmt::format(" ({})", maker)),
                         command.empty() ? "" : "To reach it: " + command});
}

}  // namespace Lanscout
