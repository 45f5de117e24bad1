#include "tools/lanscout-sim/network/netdevice.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/if_link.h>
#include <linux/if_tun.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <bit>
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
        const bool isForbidden = errno == EACCES || errno == EPERM;
        FailWithErrno(fmt::format("cannot open {}", kPath),
                      isForbidden ? "this user may not use it: run as root, make it readable and "
                                    "writable for the user, or use --mode loopback"
                                  : "the kernel's module tun must be there (modprobe tun), or use "
                                    "--mode loopback");
    }
    return fd;
}

ifreq RequestFor(const std::string& device) {
    ifreq request{};
    device.copy(static_cast<char*>(request.ifr_name), IFNAMSIZ - 1);
    return request;
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
    : m_name(std::move(name)), m_index(if_nametoindex(m_name.c_str())) {
    if (m_index == 0) {
        FailWithErrno("cannot find the device " + m_name);
    }
}

void NetDevice::SetAddress(const Subnet& subnet) {
    NetlinkMessage message(RTM_NEWADDR, NLM_F_CREATE | NLM_F_REPLACE);
    auto& fields = message.Extra<ifaddrmsg>();
    fields.ifa_family = AF_INET;
    fields.ifa_prefixlen = static_cast<unsigned char>(subnet.prefixBits);
    fields.ifa_index = m_index;
    message.Put(IFA_LOCAL, htonl(subnet.address.value));
    message.Put(IFA_ADDRESS, htonl(subnet.address.value));
    message.Put(IFA_BROADCAST, htonl(subnet.Broadcast().value));
    Do(message, "give its address to " + m_name);
}

void NetDevice::LeaveIpv6AddressToMe() {
    NetlinkMessage message(RTM_NEWLINK, 0);
    message.Extra<ifinfomsg>().ifi_index = static_cast<int>(m_index);
    auto* families = mnl_attr_nest_start(message.Header(), IFLA_AF_SPEC);
    auto* family = mnl_attr_nest_start(message.Header(), AF_INET6);
    mnl_attr_put_u8(message.Header(), IFLA_INET6_ADDR_GEN_MODE, IN6_ADDR_GEN_MODE_NONE);
    mnl_attr_nest_end(message.Header(), family);
    mnl_attr_nest_end(message.Header(), families);
    Do(message, "take over the IPv6 address of " + m_name);
}

// Usable at once: nobody else has it, so the second that the kernel takes to ask is not waited for.
void NetDevice::SetLinkLocalAddress(const Ipv6& address) {
    constexpr unsigned char kLinkLocalBits = 64;
    NetlinkMessage message(RTM_NEWADDR, NLM_F_CREATE | NLM_F_REPLACE);
    auto& fields = message.Extra<ifaddrmsg>();
    fields.ifa_family = AF_INET6;
    fields.ifa_prefixlen = kLinkLocalBits;
    fields.ifa_flags = IFA_F_NODAD;
    fields.ifa_scope = RT_SCOPE_LINK;
    fields.ifa_index = m_index;
    message.Put(IFA_ADDRESS, address.bytes);
    Do(message, "give its IPv6 address to " + m_name);
}

void NetDevice::Join(const std::string& bridge) {
    const unsigned master = if_nametoindex(bridge.c_str());
    if (master == 0) {
        FailWithErrno("cannot find the bridge " + bridge);
    }
    NetlinkMessage message(RTM_NEWLINK, 0);
    message.Extra<ifinfomsg>().ifi_index = static_cast<int>(m_index);
    message.Put(IFLA_MASTER, master);
    Do(message, fmt::format("put {} into {}", m_name, bridge));
}

// By netlink, which root of a user namespace may use; the older ioctl asks for the machine's root.
void NetDevice::SetQueueLength(int frames) {
    NetlinkMessage message(RTM_NEWLINK, 0);
    auto& fields = message.Extra<ifinfomsg>();
    fields.ifi_index = static_cast<int>(m_index);
    message.Put(IFLA_TXQLEN, frames);
    Do(message, "set the queue length of " + m_name);
}

void NetDevice::SetUp() {
    NetlinkMessage message(RTM_NEWLINK, 0);
    auto& fields = message.Extra<ifinfomsg>();
    fields.ifi_index = static_cast<int>(m_index);
    fields.ifi_flags = IFF_UP;
    fields.ifi_change = IFF_UP;
    Do(message, "bring up " + m_name);
}

void NetDevice::AddRoute(const Subnet& destination, const RouteKind& kind,
                         const std::string& what) {
    NetlinkMessage message(RTM_NEWROUTE, NLM_F_CREATE | NLM_F_REPLACE);
    auto& fields = message.Extra<rtmsg>();
    fields.rtm_family = AF_INET;
    fields.rtm_dst_len = static_cast<unsigned char>(destination.prefixBits);
    fields.rtm_table = kind.table;
    fields.rtm_protocol = RTPROT_STATIC;
    fields.rtm_scope = kind.scope;
    fields.rtm_type = kind.type;
    message.Put(RTA_DST, htonl(destination.Network().value));
    message.Put(RTA_OIF, m_index);
    Do(message, what);
}

void NetDevice::AddRoute(const Subnet& destination) {
    AddRoute(destination, {RTN_UNICAST, RT_TABLE_MAIN, RT_SCOPE_LINK},
             fmt::format("route {} to {}", ToText(destination), m_name));
}

void NetDevice::AddLocalRoute(Ipv4 destination) {
    AddRoute({destination, 32}, {RTN_LOCAL, RT_TABLE_LOCAL, RT_SCOPE_HOST},
             "take packets for " + ToText(destination));
}

void NetDevice::SilenceIpv6() const {
    std::ofstream(fmt::format("/proc/sys/net/ipv6/conf/{}/disable_ipv6", m_name)) << '1';
}

Mac NetDevice::HardwareAddress() {
    const Descriptor fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    auto request = RequestFor(m_name);
    if (ioctl(fd.Get(), SIOCGIFHWADDR, &request) != 0) {
        FailWithErrno("cannot read the MAC address of " + m_name);
    }
    Mac mac{};
    std::memcpy(mac.data(), static_cast<char*>(request.ifr_hwaddr.sa_data), mac.size());
    return mac;
}

std::optional<Subnet> NetDevice::Address() {
    const Descriptor fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    auto request = RequestFor(m_name);
    const auto read = [&](unsigned long operation) -> std::optional<std::uint32_t> {
        sockaddr_in address{};
        if (ioctl(fd.Get(), operation, &request) != 0) {
            return std::nullopt;
        }
        std::memcpy(&address, &request.ifr_addr, sizeof address);
        return ntohl(address.sin_addr.s_addr);
    };
    const auto address = read(SIOCGIFADDR);
    const auto mask = read(SIOCGIFNETMASK);
    if (!address || !mask) {
        return std::nullopt;
    }
    return Subnet{Ipv4{*address}, std::popcount(*mask)};
}

void NetDevice::Do(NetlinkMessage& message, const std::string& what) {
    if (!m_netlink.Do(message)) {
        FailWithErrno("cannot " + what);
    }
}

}  // namespace lansim
