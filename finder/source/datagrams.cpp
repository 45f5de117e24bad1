#include "finder/source/datagrams.h"

#include <arpa/inet.h>
#include <net/if.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "finder/text/addresstext.h"

namespace Lanscout {
namespace {

OpenedSocket Failed(int error) {
    return {Descriptor(), error};
}

// As far as the kernel gives: more than its limit only to who may administer the network.
void EnlargeBuffer(int fd, int bytes) {
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0) {
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    }
}

template <typename Address>
Endpoint EndpointOf(const Address& address) {
    Endpoint endpoint;
    std::memcpy(&endpoint.address, &address, sizeof address);
    endpoint.length = sizeof address;
    return endpoint;
}

const sockaddr* AddressOf(const Endpoint& endpoint) {
    return reinterpret_cast<const sockaddr*>(&endpoint.address);
}

OpenedSocket OpenBound(const Endpoint& local, int bufferBytes) {
    constexpr int kOn = 1;
    const int family = local.address.ss_family;
    Descriptor socket(::socket(family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!socket) {
        return Failed(errno);
    }
    EnlargeBuffer(socket.Fd(), bufferBytes);
    if (family == AF_INET6) {
        setsockopt(socket.Fd(), IPPROTO_IPV6, IPV6_V6ONLY, &kOn, sizeof kOn);
    }
    if (bind(socket.Fd(), AddressOf(local), local.length) != 0) {
        return Failed(errno);
    }
    return {std::move(socket), 0};
}

}  // namespace

OpenedSocket OpenSocketAt(const std::string& address, int port, int bufferBytes) {
    const auto value = Ipv4Value(address);
    if (!value) {
        return Failed(EADDRNOTAVAIL);
    }
    OpenedSocket opened = OpenBound(Ipv4Endpoint(*value, port), bufferBytes);
    // Whatever route there is for the group. An address that no interface lists (127.0.0.2) needs
    // none: the one that the socket is bound to decides.
    const in_addr interface { htonl(*value) };
    setsockopt(opened.socket.Fd(), IPPROTO_IP, IP_MULTICAST_IF, &interface, sizeof interface);
    return opened;
}

OpenedSocket OpenIpv6SocketAt(const std::string& address, unsigned int interface, int port,
                              int bufferBytes) {
    OpenedSocket opened = OpenBound(Ipv6Endpoint(address, interface, port), bufferBytes);
    setsockopt(opened.socket.Fd(), IPPROTO_IPV6, IPV6_MULTICAST_IF, &interface, sizeof interface);
    return opened;
}

OpenedSocket OpenSocketAnywhere(int port, int bufferBytes) {
    return OpenBound(Ipv4Endpoint(INADDR_ANY, port), bufferBytes);
}

int BufferBytesOf(int fd) {
    int bytes = 0;
    socklen_t length = sizeof bytes;
    return getsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bytes, &length) == 0 ? bytes : 0;
}

Endpoint Ipv4Endpoint(std::uint32_t address, int port) {
    sockaddr_in endpoint{};
    endpoint.sin_family = AF_INET;
    endpoint.sin_port = htons(static_cast<std::uint16_t>(port));
    endpoint.sin_addr.s_addr = htonl(address);
    return EndpointOf(endpoint);
}

Endpoint Ipv6Endpoint(const std::string& address, unsigned int interface, int port) {
    sockaddr_in6 endpoint{};
    endpoint.sin6_family = AF_INET6;
    endpoint.sin6_port = htons(static_cast<std::uint16_t>(port));
    endpoint.sin6_scope_id = interface;
    inet_pton(AF_INET6, address.c_str(), &endpoint.sin6_addr);
    return EndpointOf(endpoint);
}

int SendDatagram(int fd, std::string_view text, const Endpoint& to) {
    const ssize_t sent =
        sendto(fd, text.data(), text.size(), MSG_NOSIGNAL, AddressOf(to), to.length);
    return sent < 0 ? errno : 0;
}

std::string Correspondent::Text() const {
    if (address.ss_family == AF_INET) {
        return Ipv4Text(ntohl(reinterpret_cast<const sockaddr_in&>(address).sin_addr.s_addr));
    }
    const auto& six = reinterpret_cast<const sockaddr_in6&>(address);
    std::array<char, INET6_ADDRSTRLEN> text{};
    inet_ntop(AF_INET6, &six.sin6_addr, text.data(), text.size());
    std::array<char, IF_NAMESIZE> zone{};
    if (six.sin6_scope_id == 0 || if_indextoname(six.sin6_scope_id, zone.data()) == nullptr) {
        return text.data();
    }
    return std::string(text.data()) + "%" + zone.data();
}

std::string Correspondent::Key() const {
    if (address.ss_family == AF_INET) {
        const auto& four = reinterpret_cast<const sockaddr_in&>(address);
        return {reinterpret_cast<const char*>(&four.sin_addr), sizeof four.sin_addr};
    }
    const auto& six = reinterpret_cast<const sockaddr_in6&>(address);
    return std::string(reinterpret_cast<const char*>(&six.sin6_addr), sizeof six.sin6_addr)
        .append(reinterpret_cast<const char*>(&six.sin6_scope_id), sizeof six.sin6_scope_id);
}

DatagramReader::DatagramReader()
    : m_bytes(std::make_unique_for_overwrite<char[]>(kAtOnce * kLongestBytes)) {
    for (std::size_t i = 0; i < kAtOnce; ++i) {
        m_parts[i] = {m_bytes.get() + i * kLongestBytes, kLongestBytes};
        m_messages[i].msg_hdr.msg_name = &m_senders[i].address;
        m_messages[i].msg_hdr.msg_iov = &m_parts[i];
        m_messages[i].msg_hdr.msg_iovlen = 1;
    }
}

void DatagramReader::Read(int fd, std::size_t most, const Take& take) {
    for (std::size_t read = 0; read < most;) {
        for (mmsghdr& message : m_messages) {
            message.msg_hdr.msg_namelen = sizeof(sockaddr_storage);
        }
        const int count = recvmmsg(fd, m_messages.data(), kAtOnce, MSG_DONTWAIT, nullptr);
        if (count <= 0) {
            return;
        }
        const auto got = static_cast<std::size_t>(count);
        for (std::size_t i = 0; i < got; ++i) {
            take(m_senders[i],
                 {m_bytes.get() + i * kLongestBytes, std::size_t{m_messages[i].msg_len}});
        }
        read += got;
        if (got < kAtOnce) {
            return;
        }
    }
}

}  // namespace Lanscout
