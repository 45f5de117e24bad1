// The finder's own UDP sockets: Probes go out of them, and the replies come to them.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "finder/machine/descriptor.h"

namespace Lanscout {

// A socket that does not block, or the errno value of what failed.
struct OpenedSocket {
    Descriptor socket;
    int error = 0;
};

// Bound to an address of this machine; what goes to a group leaves by its interface.
OpenedSocket OpenSocketAt(const std::string& address, int port, int bufferBytes);

// The same for an IPv6 address (without its zone) of the interface with that index.
OpenedSocket OpenIpv6SocketAt(const std::string& address, unsigned int interface, int port,
                              int bufferBytes);

// Bound to none: the kernel chooses the way for each datagram.
OpenedSocket OpenSocketAnywhere(int port, int bufferBytes);

// What the socket's buffer can hold, as the kernel counts.
int BufferBytesOf(int fd);

// Where a datagram goes.
struct Endpoint {
    sockaddr_storage address{};
    socklen_t length = 0;
};

Endpoint Ipv4Endpoint(std::uint32_t address, int port);

// With the index of its interface where it is a link-local or multicast one.
Endpoint Ipv6Endpoint(const std::string& address, unsigned int interface, int port);

// 0, or the errno value of what failed.
int SendDatagram(int fd, std::string_view text, const Endpoint& to);

// Whom a datagram came from.
struct Correspondent {
    sockaddr_storage address{};

    std::string Text() const;  // "192.168.1.20", "fe80::1%eth0"
    std::string Key() const;   // short, and different for different addresses
};

// Reads many datagrams at once into buffers of its own.
class DatagramReader {
public:
    using Take = std::function<void(const Correspondent& sender, std::string_view text)>;

    DatagramReader();

    // Reads what is there, up to about that many datagrams.
    void Read(int fd, std::size_t most, const Take& take);

private:
    static constexpr std::size_t kAtOnce = 32;
    static constexpr std::size_t kLongestBytes = 65536;

    std::unique_ptr<char[]> m_bytes;  // only the pages that are written to cost memory
    std::array<iovec, kAtOnce> m_parts{};
    std::array<Correspondent, kAtOnce> m_senders{};
    std::array<mmsghdr, kAtOnce> m_messages{};
};

}  // namespace Lanscout
