#include "tools/lanscout-sim/network/tapnetwork.h"

#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "tools/lanscout-sim/network/frames6.h"
#include "tools/lanscout-sim/network/netdevice.h"

namespace lansim {
namespace {

constexpr std::size_t kLargestFrame = 65536;
// How much is read before due replies have their turn.
constexpr int kReadsAtOnce = 256;
// Frames wait here while this process is busy with others; the default of 500 loses some.
constexpr int kTapQueueFrames = 20000;
// For how long a host keeps in mind who has an address; stacks differ from half a minute up.
constexpr std::chrono::seconds kArpLifetime{60};
constexpr std::size_t kMostPeers = 4096;
constexpr std::size_t kMostAsked = 64;
constexpr Subnet kMulticast{Ipv4{0xE0000000}, 4};
// 239.255.255.250 at Ethernet level (RFC 1112, 6.4).
constexpr Mac kGroupMac{0x01, 0x00, 0x5E, 0x7F, 0xFF, 0xFA};

template <typename... Ts>
struct Overloaded : Ts... {
    using Ts::operator()...;
};
// clang before 17 does not deduce an aggregate's arguments without it.
template <typename... Ts>
Overloaded(Ts...) -> Overloaded<Ts...>;

template <typename Handler>
void ReadAll(int fd, Handler handler) {
    static thread_local std::array<char, kLargestFrame> buffer;
    for (int i = 0; i < kReadsAtOnce; ++i) {
        const ssize_t size = read(fd, buffer.data(), buffer.size());
        if (size <= 0) {
            return;
        }
        handler(std::string_view(buffer.data(), static_cast<std::size_t>(size)));
    }
}

bool IsWorthRepeating(int error) {
    return error == EAGAIN || error == ENOBUFS || error == EINTR;
}

}  // namespace

TapNetwork::TapNetwork(TapDevice device, const Subnet& searcher,
                       const std::vector<SimulatedHost>& hosts, Capture* capture)
    : m_ready(epoll_create1(EPOLL_CLOEXEC)), m_tap(std::move(device.frames)), m_capture(capture) {
    if (device.isSearchers) {
        const auto isIpv6 = [](const auto& host) { return host.ip.IsV6(); };
        SetUpForSearcher(device.name, searcher, std::ranges::any_of(hosts, isIpv6));
    } else {
        NetDevice port(device.name);
        port.SilenceIpv6();
        port.SetQueueLength(kTapQueueFrames);
        port.SetUp();
    }
    SetHosts(hosts);
    Watch(m_tap.Get());
}

void TapNetwork::SetHosts(const std::vector<SimulatedHost>& hosts) {
    const auto former = std::move(m_hosts);
    m_hosts.clear();
    for (const auto& host : hosts) {
        const auto now = m_hosts.emplace(
            host.ip,
            Host{host.mac, host.answersArp, host.asksArp, host.udpPorts, host.tcpPorts, {}});
        const auto [first, last] = former.equal_range(host.ip);
        for (auto there = first; there != last; ++there) {
            if (there->second.mac == host.mac) {
                now->second.asked = there->second.asked;
            }
        }
    }
}

void TapNetwork::SetUpForSearcher(const std::string& device, const Subnet& searcher, bool hasIpv6) {
    NetDevice("lo").SetUp();
    NetDevice tap(device);
    if (hasIpv6) {
        tap.LeaveIpv6AddressToMe();
    } else {
        tap.SilenceIpv6();
    }
    tap.SetAddress(searcher);
    tap.SetQueueLength(kTapQueueFrames);
    tap.SetUp();
    tap.AddRoute(kMulticast);
    const Mac own = tap.HardwareAddress();
    m_peers[searcher.address] = own;
    if (hasIpv6) {
        tap.SetLinkLocalAddress(LinkLocalOf(own));
        m_peers[LinkLocalOf(own)] = own;
    }
}

void TapNetwork::Attach(lansim::Descriptor peerStack) {
    m_peerStack = std::move(peerStack);
    Watch(m_peerStack.Get());
}

void TapNetwork::Watch(int fd) {
    epoll_event event{};
    event.events = EPOLLIN;
    epoll_ctl(m_ready.Get(), EPOLL_CTL_ADD, fd, &event);
}

void TapNetwork::Receive(const DatagramHandler& handler) {
    ReadAll(m_tap.Get(), [&](std::string_view frame) { Handle(frame, handler); });
    if (m_peerStack.IsOpen()) {
        ReadAll(m_peerStack.Get(), [&](std::string_view packet) { PassOn(packet); });
    }
}

void TapNetwork::Handle(std::string_view frame, const DatagramHandler& handler) {
    ++m_counts.framesHeard;
    if (m_capture != nullptr) {
        m_capture->Write(frame);
    }
    if (IsFragment(frame)) {
        if (const auto whole = m_reassembly.Add(frame)) {
            HandleWhole(*whole, handler);
        }
        return;
    }
    HandleWhole(frame, handler);
}

void TapNetwork::HandleWhole(std::string_view frame, const DatagramHandler& handler) {
    std::visit(Overloaded{[](std::monostate) {}, [&](const ArpRequest& heard) { Handle(heard); },
                          [&](const NeighbourSolicit& heard) { Handle(heard); },
                          [&](const EchoRequest& heard) { Handle(heard); },
                          [&](const TcpPacket& heard) { Handle(heard); },
                          [&](const Datagram& heard) { Handle(heard, handler); }},
               ReadFrame(frame));
}

void TapNetwork::Handle(const ArpRequest& request) {
    ++m_counts.arpRequestsHeard;
    const auto [first, last] = m_hosts.equal_range(request.target);
    for (auto entry = first; entry != last; ++entry) {
        const Host& host = entry->second;
        if (host.answersArp &&
            Write(ArpReplyFrame({request.target, host.mac},
                                {request.senderIp, request.senderMac})) == SendResult::Sent) {
            ++m_counts.arpRepliesSent;
        }
    }
}

void TapNetwork::Handle(const NeighbourSolicit& question) {
    const Host* host = Find(question.target, {});
    Learn(question.sender, question.senderMac);
    if (host != nullptr && host->answersArp) {
        Write(NeighbourAdvertFrame({question.target, host->mac}, question));
    }
}

void TapNetwork::Handle(const EchoRequest& request) {
    const Host* host = Find(request.to, request.toMac);
    if (host != nullptr && Write(EchoReplyFrame(host->mac, request)) == SendResult::Sent) {
        ++m_counts.echoRepliesSent;
    }
}

// TCP repeats what a full queue loses, so neither direction tries again here.
void TapNetwork::Handle(const TcpPacket& packet) {
    ++m_counts.tcpPacketsHeard;
    Learn(packet.from, packet.fromMac);
    const Host* host = Find(packet.to, packet.toMac);
    if (host == nullptr) {
        return;
    }
    if (!m_peerStack.IsOpen() || !host->tcpPorts.Has(packet.toPort)) {
        Refuse(TcpRefusalFrame(host->mac, packet));
        return;
    }
    if (m_hosts.count(packet.to) > 1) {
        m_connectedAs[packet.to] = packet.toMac;
    }
    [[maybe_unused]] const auto size =
        write(m_peerStack.Get(), packet.packet.data(), packet.packet.size());
}

void TapNetwork::PassOn(std::string_view packet) {
    const auto ends = EndsOf(packet);
    if (!ends) {
        return;
    }
    const auto connectedAs = m_connectedAs.find(ends->from);
    const Host* host =
        Find(ends->from, connectedAs == m_connectedAs.end() ? Mac{} : connectedAs->second);
    const auto peer = m_peers.find(ends->to);
    if (host == nullptr || peer == m_peers.end()) {
        return;
    }
    if (Write(IpFrame(host->mac, peer->second, packet)) == SendResult::Sent) {
        ++m_counts.tcpPacketsSent;
    }
}

void TapNetwork::Handle(const Datagram& datagram, const DatagramHandler& handler) {
    Learn(datagram.from.ip, datagram.fromMac);
    const Host* host = Find(datagram.to.ip, datagram.toMac);
    if (host != nullptr && !host->udpPorts.Has(datagram.to.port)) {
        Refuse(PortUnreachableFrame(host->mac, datagram));
        return;
    }
    handler(datagram);
}

void TapNetwork::Refuse(std::string_view frame) {
    if (!frame.empty() && Write(frame) == SendResult::Sent) {
        ++m_counts.refusalsSent;
    }
}

// Whoever sends from ever new addresses only makes the others speak again.
void TapNetwork::Learn(const IpAddress& ip, const Mac& mac) {
    if (m_peers.size() >= kMostPeers) {
        m_peers.clear();
    }
    m_peers[ip] = mac;
}

TapNetwork::Host* TapNetwork::Find(const IpAddress& ip, const Mac& mac) {
    const auto [first, last] = m_hosts.equal_range(ip);
    const auto found = std::find_if(
        first, last, [&](const auto& entry) { return mac == Mac{} || entry.second.mac == mac; });
    return found == last ? nullptr : &found->second;
}

SendResult TapNetwork::Send(const Datagram& datagram) {
    Host* host = Find(datagram.from.ip, datagram.fromMac);
    const bool isToGroup = datagram.to.ip == kMulticastGroup;
    const auto peer = m_peers.find(datagram.to.ip);
    if (host == nullptr || (!isToGroup && peer == m_peers.end())) {
        return SendResult::Failed;
    }
    if (!isToGroup) {
        const auto asked = AskForMac(*host, datagram.from.ip, datagram.to.ip);
        if (asked != SendResult::Sent) {
            return asked;
        }
    }
    const Mac& to = isToGroup ? kGroupMac : peer->second;
    for (const auto& frame : UdpFrames(host->mac, to, datagram, m_nextIpId++)) {
        if (const auto sent = Write(frame); sent != SendResult::Sent) {
            return sent;
        }
    }
    return SendResult::Sent;
}

// A host asks who has the address before it sends to it, and forgets the answer after a while. The
// question also makes the searcher's kernel learn the host's own MAC, which is why real cameras are
// found with theirs. The reply follows at once: the frame that carried the Probe told the answer.
SendResult TapNetwork::AskForMac(Host& host, const IpAddress& own, const IpAddress& peer) {
    const TimePoint now = std::chrono::steady_clock::now();
    const auto asked = host.asked.find(peer);
    if (!host.asksArp || (asked != host.asked.end() && now < asked->second + kArpLifetime)) {
        return SendResult::Sent;
    }
    const auto sent = Write(own.IsV6() ? NeighbourSolicitFrame({own.V6(), host.mac}, peer.V6())
                                       : ArpRequestFrame({own.V4(), host.mac}, peer.V4()));
    if (sent == SendResult::Sent) {
        ++m_counts.arpRequestsSent;
        if (host.asked.size() >= kMostAsked) {
            host.asked.clear();
        }
        host.asked[peer] = now;
    }
    return sent;
}

SendResult TapNetwork::Write(std::string_view frame) {
    if (write(m_tap.Get(), frame.data(), frame.size()) < 0) {
        return IsWorthRepeating(errno) ? SendResult::TryAgain : SendResult::Failed;
    }
    ++m_counts.framesSent;
    if (m_capture != nullptr) {
        m_capture->Write(frame);
    }
    return SendResult::Sent;
}

}  // namespace lansim
