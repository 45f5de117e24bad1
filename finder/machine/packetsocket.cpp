#include "finder/machine/packetsocket.h"

#include <linux/filter.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <pcap/pcap.h>
#include <sys/socket.h>

#include <cerrno>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace Lanscout {
namespace {

constexpr int kLongestFrame = 65535;
constexpr int kReceiveBufferBytes = 4 << 20;

[[noreturn]] void Fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

struct Program {
    bpf_program code{};
    Program() = default;
    ~Program() { pcap_freecode(&code); }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
};

// libpcap's program and the kernel's are the same, instruction by instruction.
void Attach(int socket, const char* filter) {
    static_assert(sizeof(bpf_insn) == sizeof(sock_filter));
    const std::unique_ptr<pcap_t, decltype(&pcap_close)> compiler(
        pcap_open_dead(DLT_EN10MB, kLongestFrame), &pcap_close);
    Program program;
    if (!compiler ||
        pcap_compile(compiler.get(), &program.code, filter, 1, PCAP_NETMASK_UNKNOWN) != 0) {
        throw std::runtime_error("libpcap does not take the filter");
    }
    const sock_fprog kernels{static_cast<unsigned short>(program.code.bf_len),
                             reinterpret_cast<sock_filter*>(program.code.bf_insns)};
    if (setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &kernels, sizeof kernels) != 0) {
        Fail("the kernel does not take the filter");
    }
}

void EnlargeBuffer(int socket) {
    for (const int option : {SO_RCVBUF, SO_RCVBUFFORCE}) {
        const int bytes = kReceiveBufferBytes;
        setsockopt(socket, SOL_SOCKET, option, &bytes, sizeof bytes);
    }
}

void Bind(int socket, const std::string& interface) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (address.sll_ifindex == 0 || bind(socket, generic, size) != 0 ||
        getsockname(socket, generic, &size) != 0) {
        Fail("its frames cannot be had");
    }
    if (address.sll_hatype != ARPHRD_ETHER && address.sll_hatype != ARPHRD_LOOPBACK) {
        throw std::runtime_error("the interface has no Ethernet frames");
    }
}

PacketSocket::Way WayOf(const sockaddr_ll& from) {
    switch (from.sll_pkttype) {
        case PACKET_HOST:
            return PacketSocket::Way::In;
        case PACKET_OUTGOING:
            return PacketSocket::Way::Out;
        default:
            return PacketSocket::Way::Other;
    }
}

}  // namespace

// Without a protocol no frame arrives before the filter is there.
PacketSocket::PacketSocket(const std::string& interface, const char* filter)
    : m_socket(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    if (!m_socket) {
        Fail("no packet socket");
    }
    Attach(m_socket.Fd(), filter);
    EnlargeBuffer(m_socket.Fd());
    Bind(m_socket.Fd(), interface);
}

PacketSocket::Got PacketSocket::Receive(std::string& buffer) {
    buffer.resize(kLongestFrame);
    sockaddr_ll from{};
    socklen_t size = sizeof from;
    const ssize_t count = recvfrom(m_socket.Fd(), buffer.data(), buffer.size(), 0,
                                   reinterpret_cast<sockaddr*>(&from), &size);
    if (count <= 0) {
        return {};  // also when the interface went down: it may come up again
    }
    return {WayOf(from), std::string_view(buffer).substr(0, static_cast<std::size_t>(count))};
}

bool MayOpenPacketSockets() {
    return static_cast<bool>(Descriptor(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)));
}

}  // namespace Lanscout
