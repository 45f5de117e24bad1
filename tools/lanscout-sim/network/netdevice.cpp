#include "tools/lanscout-sim/network/netdevice.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <net/route.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "tools/lanscout-sim/base/setuperror.h"

namespace lansim {
namespace {

// Containers often lack /dev/net/tun although the kernel has it. A node made for the moment
// leaves nothing behind.
Descriptor OpenTunThroughOwnNode() {
    constexpr int kMisc = 10;
    constexpr int kTunMinor = 200;
    const std::string node = fmt::format("/tmp/lanscout-sim-tun-{}", getpid());
    if (mknod(node.c_str(), S_IFCHR | 0600, makedev(kMisc, kTunMinor)) != 0) {
        return {};
    }
    Descriptor fd(open(node.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    unlink(node.c_str());
    return fd;
}

Descriptor OpenTun() {
    constexpr const char* kPath = "/dev/net/tun";
    Descriptor fd(open(kPath, O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!fd.IsOpen() && (errno == ENOENT || errno == ENODEV)) {
        const int reason = errno;
        fd = OpenTunThroughOwnNode();
        errno = reason;
    }
    if (!fd.IsOpen()) {
        FailWithErrno(
            fmt::format("cannot open {}", kPath),
            "the kernel's module tun must be there (modprobe tun), or use --mode loopback");
    }
    return fd;
}

ifreq RequestFor(const std::string& device) {
    ifreq request{};
    device.copy(static_cast<char*>(request.ifr_name), IFNAMSIZ - 1);
    return request;
}

void PutAddress(sockaddr& target, Ipv4 ip) {
    const sockaddr_in address = ToSockaddr({ip, 0});
    std::memcpy(&target, &address, sizeof target);
}

}  // namespace

Descriptor MakeTunDevice(const std::string& name, TunKind kind) {
    Descriptor fd = OpenTun();
    auto request = RequestFor(name);
    request.ifr_flags =
        static_cast<short>((kind == TunKind::IpPackets ? IFF_TUN : IFF_TAP) | IFF_NO_PI);
    if (ioctl(fd.Get(), TUNSETIFF, &request) != 0) {
        FailWithErrno("cannot make the device " + name,
                      "it takes CAP_NET_ADMIN; --mode loopback takes none");
    }
    return fd;
}

NetDevice::NetDevice(std::string name)
    : m_name(std::move(name)), m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    if (!m_socket.IsOpen()) {
        FailWithErrno("cannot open a socket to set up " + m_name);
    }
}

void NetDevice::SetAddress(const Subnet& subnet) {
    auto request = RequestFor(m_name);
    PutAddress(request.ifr_addr, subnet.address);
    Do(SIOCSIFADDR, request, "give its address to");
    PutAddress(request.ifr_addr, subnet.Mask());
    Do(SIOCSIFNETMASK, request, "give its netmask to");
}

void NetDevice::SetQueueLength(int frames) {
    auto request = RequestFor(m_name);
    request.ifr_qlen = frames;
    Do(SIOCSIFTXQLEN, request, "set the queue length of");
}

void NetDevice::SetUp() {
    auto request = RequestFor(m_name);
    Do(SIOCGIFFLAGS, request, "read the flags of");
    request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP | IFF_RUNNING);
    Do(SIOCSIFFLAGS, request, "bring up");
}

void NetDevice::AddRoute(const Subnet& destination) {
    rtentry route{};
    PutAddress(route.rt_dst, destination.Network());
    PutAddress(route.rt_genmask, destination.Mask());
    route.rt_flags = RTF_UP;
    route.rt_dev = m_name.data();
    if (ioctl(m_socket.Get(), SIOCADDRT, &route) != 0) {
        FailWithErrno(fmt::format("cannot route {} to {}", ToText(destination), m_name));
    }
}

void NetDevice::SilenceIpv6() const {
    std::ofstream(fmt::format("/proc/sys/net/ipv6/conf/{}/disable_ipv6", m_name)) << '1';
}

Mac NetDevice::HardwareAddress() {
    auto request = RequestFor(m_name);
    Do(SIOCGIFHWADDR, request, "read the MAC of");
    Mac mac{};
    std::memcpy(mac.data(), static_cast<char*>(request.ifr_hwaddr.sa_data), mac.size());
    return mac;
}

void NetDevice::Do(unsigned long operation, ifreq& request, const char* what) {
    if (ioctl(m_socket.Get(), operation, &request) != 0) {
        FailWithErrno(fmt::format("cannot {} {}", what, m_name));
    }
}

}  // namespace lansim
