#include "fuzz/fakenetwork.h"

#include <arpa/inet.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <utility>

namespace FakeNetwork {
namespace {

// Far above what the process can have open.
constexpr int kFakeSocket = 1'000'000;
constexpr std::int64_t kReceiveTimeoutMicroseconds = 3'000'000;
constexpr std::int64_t kDayMicroseconds = 86'400'000'000;

thread_local Network* t_network = nullptr;

}  // namespace

Network::Network(std::vector<Datagram> datagrams, int laterCycles, Later later)
    : m_vecDatagrams(std::move(datagrams)), m_nLaterCycles(laterCycles), m_later(later) {
    t_network = this;
}

Network::~Network() {
    t_network = nullptr;
}

std::ptrdiff_t Network::Receive(void* buffer, std::size_t size, std::uint32_t& sender) {
    if (m_nNext == m_vecDatagrams.size()) {
        EndCycle();
        errno = EAGAIN;
        return -1;
    }
    const Datagram& next = m_vecDatagrams[m_nNext++];
    const std::size_t count = std::min(size, next.bytes.size());
    std::copy_n(next.bytes.data(), count, static_cast<char*>(buffer));
    sender = next.sender;
    return static_cast<std::ptrdiff_t>(count);
}

void Network::EndCycle() {
    if (m_nLaterCycles == 0) {
        m_nMicroseconds += kDayMicroseconds;
        return;
    }
    m_nMicroseconds += kReceiveTimeoutMicroseconds;
    --m_nLaterCycles;
    if (m_later == Later::Same) {
        m_nNext = 0;
    }
}

void Network::SleepUntil(std::int64_t microseconds) {
    m_nMicroseconds = std::max(m_nMicroseconds, microseconds);
}

namespace {

// The ARP cache: complete for most neighbours, and for every sixteenth an error that sends nobody
// to look for it with a program.
int QueryArp(arpreq& request) {
    sockaddr_in address{};
    std::memcpy(&address, &request.arp_pa, sizeof(address));
    const std::uint32_t ip = ntohl(address.sin_addr.s_addr);
    if (ip % 16 == 15) {
        errno = EINVAL;
        return -1;
    }
    request.arp_flags = ATF_COM;
    const unsigned char mac[6] = {2,
                                  0,
                                  static_cast<unsigned char>(ip >> 24),
                                  static_cast<unsigned char>(ip >> 16),
                                  static_cast<unsigned char>(ip >> 8),
                                  static_cast<unsigned char>(ip)};
    std::memcpy(request.arp_ha.sa_data, mac, sizeof(mac));
    return 0;
}

}  // namespace
}  // namespace FakeNetwork

using FakeNetwork::kFakeSocket;
using FakeNetwork::t_network;

extern "C" {

int __real_socket(int domain, int type, int protocol);
int __real_close(int fd);
int __real_fcntl(int fd, int command, ...);
int __real_bind(int fd, const sockaddr* address, socklen_t length);
int __real_setsockopt(int fd, int level, int name, const void* value, socklen_t length);
ssize_t __real_sendto(int fd, const void* data, size_t size, int flags, const sockaddr* to,
                      socklen_t length);
ssize_t __real_recvfrom(int fd, void* buffer, size_t size, int flags, sockaddr* from,
                        socklen_t* length);
int __real_ioctl(int fd, unsigned long request, ...);
time_t __real_time(time_t* result);
int __real_clock_gettime(clockid_t clock, timespec* now);
int __real_clock_nanosleep(clockid_t clock, int flags, const timespec* until, timespec* left);

int __wrap_socket(int domain, int type, int protocol) {
    return t_network == nullptr ? __real_socket(domain, type, protocol) : kFakeSocket;
}

int __wrap_close(int fd) {
    return fd == kFakeSocket ? 0 : __real_close(fd);
}

int __wrap_fcntl(int fd, int command, ...) {
    if (fd == kFakeSocket) {
        return 0;
    }
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return __real_fcntl(fd, command, argument);
}

int __wrap_bind(int fd, const sockaddr* address, socklen_t length) {
    return fd == kFakeSocket ? 0 : __real_bind(fd, address, length);
}

int __wrap_setsockopt(int fd, int level, int name, const void* value, socklen_t length) {
    return fd == kFakeSocket ? 0 : __real_setsockopt(fd, level, name, value, length);
}

ssize_t __wrap_sendto(int fd, const void* data, size_t size, int flags, const sockaddr* to,
                      socklen_t length) {
    if (fd != kFakeSocket) {
        return __real_sendto(fd, data, size, flags, to, length);
    }
    t_network->CountProbe();
    return static_cast<ssize_t>(size);
}

ssize_t __wrap_recvfrom(int fd, void* buffer, size_t size, int flags, sockaddr* from,
                        socklen_t* length) {
    if (fd != kFakeSocket) {
        return __real_recvfrom(fd, buffer, size, flags, from, length);
    }
    std::uint32_t sender = 0;
    const std::ptrdiff_t count = t_network->Receive(buffer, size, sender);
    if (count >= 0) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(sender);
        std::memcpy(from, &address, sizeof(address));
        *length = sizeof(address);
    }
    return count;
}

int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return fd == kFakeSocket ? FakeNetwork::QueryArp(*static_cast<arpreq*>(argument))
                             : __real_ioctl(fd, request, argument);
}

time_t __wrap_time(time_t* result) {
    if (t_network == nullptr) {
        return __real_time(result);
    }
    const time_t now = t_network->Seconds();
    if (result != nullptr) {
        *result = now;
    }
    return now;
}

int __wrap_clock_gettime(clockid_t clock, timespec* now) {
    if (t_network == nullptr || clock != CLOCK_MONOTONIC) {
        return __real_clock_gettime(clock, now);
    }
    now->tv_sec = t_network->Microseconds() / 1'000'000;
    now->tv_nsec = t_network->Microseconds() % 1'000'000 * 1000;
    return 0;
}

int __wrap_clock_nanosleep(clockid_t clock, int flags, const timespec* until, timespec* left) {
    if (t_network == nullptr) {
        return __real_clock_nanosleep(clock, flags, until, left);
    }
    t_network->SleepUntil(std::int64_t{until->tv_sec} * 1'000'000 + (until->tv_nsec + 999) / 1000);
    return 0;
}
}
