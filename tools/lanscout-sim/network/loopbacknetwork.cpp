#include "tools/lanscout-sim/network/loopbacknetwork.h"

#include <fmt/format.h>
#include <net/if.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <set>

#include "tools/lanscout-sim/base/setuperror.h"
#include "tools/lanscout-sim/network/frames.h"

namespace lansim {
namespace {

constexpr std::size_t kLargestDatagram = 65536;
constexpr std::size_t kLoopbackMtu = 65536;
constexpr int kEventsAtOnce = 64;
// For the rest of the process: HTTP connections, files.
constexpr rlim_t kOtherDescriptors = 256;

void AllowDescriptors(std::size_t sockets) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlim_t wanted = sockets + kOtherDescriptors;
    if (limit.rlim_cur >= wanted) {
        return;
    }
    limit.rlim_cur = std::min(wanted, limit.rlim_max);
    setrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < wanted) {
        throw SetupError(
            fmt::format("{} devices in loopback mode take as many sockets, and this "
                        "process may open {}; give fewer devices, raise \"ulimit "
                        "-n\", or use --mode namespace",
                        sockets, limit.rlim_max));
    }
}

void CheckLoopbackIsUp() {
    const lansim::Descriptor fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    std::string("lo").copy(static_cast<char*>(request.ifr_name), IFNAMSIZ - 1);
    if (ioctl(fd.Get(), SIOCGIFFLAGS, &request) == 0 && (request.ifr_flags & IFF_UP) == 0) {
        throw SetupError("the loopback device is down; bring it up with: ip link set lo up");
    }
}

ip_mreqn OnLoopback(Ipv4 group) {
    ip_mreqn membership{};
    membership.imr_multiaddr = ToSockaddr({group, 0}).sin_addr;
    membership.imr_ifindex = static_cast<int>(if_nametoindex("lo"));
    return membership;
}

void SendMulticastOnLoopback(int fd, std::uint16_t port) {
    const ip_mreqn device = OnLoopback({});
    setsockopt(fd, IPPROTO_IP, IP_MULTICAST_IF, &device, sizeof device);
    const int ttl = port == kSsdpPort ? 2 : 1;
    setsockopt(fd, IPPROTO_IP, IP_MULTICAST_TTL, &ttl, sizeof ttl);
}

void JoinOnLoopback(int fd, Ipv4 group) {
    const ip_mreqn membership = OnLoopback(group);
    if (setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) != 0) {
        throw SetupError(
            fmt::format("cannot join {} on lo: {}", ToText(group), std::strerror(errno)));
    }
}

}  // namespace

LoopbackNetwork::LoopbackNetwork(const std::vector<SimulatedHost>& hosts, Capture* capture)
    : m_capture(capture), m_ready(epoll_create1(EPOLL_CLOEXEC)) {
    CheckLoopbackIsUp();
    SetHosts(hosts);
}

void LoopbackNetwork::SetHosts(const std::vector<SimulatedHost>& hosts) {
    std::set<Endpoint> wanted;  // hosts that share an address share its sockets
    m_macs.clear();
    for (const auto& host : hosts) {
        m_macs[host.ip] = host.mac;
        for (const auto port : host.udpPorts.All()) {
            wanted.insert({kMulticastGroup, port});
            wanted.insert({host.ip, port});
        }
    }
    AllowDescriptors(wanted.size());
    for (auto socket = m_sockets.begin(); socket != m_sockets.end();) {
        if (wanted.contains(socket->first)) {
            ++socket;
            continue;
        }
        m_endpoints.erase(socket->second.Get());
        socket = m_sockets.erase(socket);
    }
    for (const auto& at : wanted) {
        if (!m_sockets.contains(at)) {
            Listen(at, at.ip == IpAddress(kMulticastGroup));
        }
    }
}

void LoopbackNetwork::Listen(const Endpoint& at, bool isGroup) {
    lansim::Descriptor fd(socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!fd.IsOpen()) {
        throw SetupError(
            fmt::format("cannot open a socket for {}: {}", ToText(at.ip), std::strerror(errno)));
    }
    const int on = 1;
    // Others on this machine may listen to the group as well, and a UPnP library listens at SSDP's
    // port of every address.
    if (isGroup || at.port == kSsdpPort) {
        setsockopt(fd.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    }
    const sockaddr_in address = ToSockaddr(at);
    if (bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw SetupError(
            fmt::format("cannot listen at {} port {}: {}; end the program that uses "
                        "the port, or give another --network of 127.0.0.0/8",
                        ToText(at.ip), at.port, std::strerror(errno)));
    }
    if (isGroup) {
        JoinOnLoopback(fd.Get(), at.ip.V4());
    } else {
        SendMulticastOnLoopback(fd.Get(), at.port);
    }
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd.Get();
    epoll_ctl(m_ready.Get(), EPOLL_CTL_ADD, fd.Get(), &event);
    m_endpoints[fd.Get()] = at;
    m_sockets[at] = std::move(fd);
}

void LoopbackNetwork::Receive(const DatagramHandler& handler) {
    std::array<epoll_event, kEventsAtOnce> events{};
    const int count = epoll_wait(m_ready.Get(), events.data(), kEventsAtOnce, 0);
    for (int i = 0; i < count; ++i) {
        const int fd = events.at(static_cast<std::size_t>(i)).data.fd;
        ReceiveAt(fd, m_endpoints.at(fd), handler);
    }
}

void LoopbackNetwork::ReceiveAt(int fd, const Endpoint& at, const DatagramHandler& handler) {
    static thread_local std::array<char, kLargestDatagram> buffer;
    sockaddr_in from{};
    socklen_t fromSize = sizeof from;
    const ssize_t size = recvfrom(fd, buffer.data(), buffer.size(), 0,
                                  reinterpret_cast<sockaddr*>(&from), &fromSize);
    if (size < 0) {
        return;
    }
    const Datagram datagram{
        FromSockaddr(from), at, {buffer.data(), static_cast<std::size_t>(size)}};
    Record(datagram);
    handler(datagram);
}

SendResult LoopbackNetwork::Send(const Datagram& datagram) {
    const auto found = m_sockets.find(datagram.from);
    if (found == m_sockets.end()) {
        return SendResult::Failed;
    }
    const sockaddr_in to = ToSockaddr(datagram.to);
    if (sendto(found->second.Get(), datagram.payload.data(), datagram.payload.size(), 0,
               reinterpret_cast<const sockaddr*>(&to), sizeof to) < 0) {
        return errno == EAGAIN || errno == ENOBUFS || errno == EINTR ? SendResult::TryAgain
                                                                     : SendResult::Failed;
    }
    Record(datagram);
    return SendResult::Sent;
}

// The frames never were, but Wireshark shows the same conversation for both modes.
void LoopbackNetwork::Record(const Datagram& datagram) {
    if (m_capture == nullptr) {
        return;
    }
    const auto mac = [&](const IpAddress& ip) {
        const auto found = m_macs.find(ip);
        return found == m_macs.end() ? Mac{} : found->second;
    };
    for (const auto& frame : UdpFrames(mac(datagram.from.ip), mac(datagram.to.ip), datagram,
                                       m_nextIpId++, kLoopbackMtu)) {
        m_capture->Write(frame);
    }
}

}  // namespace lansim
