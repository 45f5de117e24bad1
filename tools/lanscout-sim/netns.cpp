#include "tools/lanscout-sim/netns.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <net/route.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "tools/lanscout-sim/frames.h"
#include "tools/lanscout-sim/population.h"

namespace lansim {
namespace {

constexpr const char* kNetnsFolder = "/run/netns";
constexpr const char* kOwnNamespace = "/proc/self/ns/net";
// Frames wait here while this process is busy with others; the default of 500 loses some.
constexpr int kTapQueueFrames = 20000;

[[noreturn]] void Fail(const std::string& what, const std::string& advice = "") {
    const char* reason = std::strerror(errno);
    throw SetupError(fmt::format("{}: {}{}{}", what, reason, advice.empty() ? "" : "; ", advice));
}

// As ip-netns(8) does it: a mount point whose propagation is shared, so that a namespace removed
// here disappears everywhere.
void PrepareNetnsFolder() {
    if (mkdir(kNetnsFolder, 0755) != 0 && errno != EEXIST)
        Fail(fmt::format("cannot make {}", kNetnsFolder));
    if (mount("", kNetnsFolder, "none", MS_SHARED | MS_REC, nullptr) == 0)
        return;
    if (errno != EINVAL || mount(kNetnsFolder, kNetnsFolder, "none", MS_BIND | MS_REC, nullptr) ||
        mount("", kNetnsFolder, "none", MS_SHARED | MS_REC, nullptr))
        Fail(fmt::format("cannot make {} a mount point for named namespaces", kNetnsFolder),
             "leave --netns out");
}

// Containers often lack /dev/net/tun although the kernel has it. A node made for the moment
// leaves nothing behind.
Descriptor OpenTunThroughOwnNode() {
    constexpr int kMisc = 10;
    constexpr int kTunMinor = 200;
    const std::string node = fmt::format("/tmp/lanscout-sim-tun-{}", getpid());
    if (mknod(node.c_str(), S_IFCHR | 0600, makedev(kMisc, kTunMinor)) != 0)
        return {};
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
    if (!fd.IsOpen())
        Fail(fmt::format("cannot open {}", kPath),
             "the kernel's module tun must be there (modprobe tun), or use --mode loopback");
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

class DeviceSetup {
public:
    explicit DeviceSetup(std::string device)
        : m_device(std::move(device)), m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        if (!m_socket.IsOpen())
            Fail("cannot open a socket to set up " + m_device);
    }

    void SetAddress(const Subnet& subnet) {
        auto request = RequestFor(m_device);
        PutAddress(request.ifr_addr, subnet.address);
        Do(SIOCSIFADDR, request, "give its address to");
        PutAddress(request.ifr_addr, subnet.Mask());
        Do(SIOCSIFNETMASK, request, "give its netmask to");
    }

    void SetQueueLength(int frames) {
        auto request = RequestFor(m_device);
        request.ifr_qlen = frames;
        Do(SIOCSIFTXQLEN, request, "set the queue length of");
    }

    void SetUp() {
        auto request = RequestFor(m_device);
        Do(SIOCGIFFLAGS, request, "read the flags of");
        request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP | IFF_RUNNING);
        Do(SIOCSIFFLAGS, request, "bring up");
    }

    Mac HardwareAddress() {
        auto request = RequestFor(m_device);
        Do(SIOCGIFHWADDR, request, "read the MAC of");
        Mac mac{};
        std::memcpy(mac.data(), static_cast<char*>(request.ifr_hwaddr.sa_data), mac.size());
        return mac;
    }

    void AddMulticastRoute() {
        rtentry route{};
        PutAddress(route.rt_dst, Ipv4{0xE0000000});
        PutAddress(route.rt_genmask, Ipv4{0xF0000000});
        route.rt_flags = RTF_UP;
        route.rt_dev = m_device.data();
        if (ioctl(m_socket.Get(), SIOCADDRT, &route) != 0)
            Fail("cannot route multicast to " + m_device);
    }

private:
    void Do(unsigned long operation, ifreq& request, const char* what) {
        if (ioctl(m_socket.Get(), operation, &request) != 0)
            Fail(fmt::format("cannot {} {}", what, m_device));
    }

    std::string m_device;
    Descriptor m_socket;
};

// Without this the kernel's own router solicitations and reports stand between what is watched.
void SilenceIpv6(const std::string& device) {
    std::ofstream(fmt::format("/proc/sys/net/ipv6/conf/{}/disable_ipv6", device)) << '1';
}

}  // namespace

NetworkNamespace::NetworkNamespace(const std::string& name)
    : m_original(open(kOwnNamespace, O_RDONLY | O_CLOEXEC)) {
    if (!m_original.IsOpen())
        Fail(fmt::format("cannot open {}", kOwnNamespace));
    if (!name.empty())
        m_path = fmt::format("{}/{}", kNetnsFolder, name);
    if (!name.empty() && access(m_path.c_str(), F_OK) == 0)
        throw SetupError(
            fmt::format("the network namespace {0} is there already; end who uses it "
                        "and run \"ip netns del {0}\", or take another name",
                        name));
    if (unshare(CLONE_NEWNET) != 0)
        Fail("cannot make a network namespace",
             "it takes root (or CAP_SYS_ADMIN and CAP_NET_ADMIN); --mode loopback takes none");
    if (!name.empty())
        MakeName();
}

void NetworkNamespace::MakeName() try {
    PrepareNetnsFolder();
    const Descriptor point(open(m_path.c_str(), O_RDONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0));
    if (!point.IsOpen())
        Fail("cannot make " + m_path);
    if (mount(kOwnNamespace, m_path.c_str(), "none", MS_BIND, nullptr) != 0) {
        const int reason = errno;
        unlink(m_path.c_str());
        errno = reason;
        Fail("cannot mount the namespace at " + m_path, "leave --netns out");
    }
} catch (const SetupError&) {
    setns(m_original.Get(), CLONE_NEWNET);
    throw;
}

NetworkNamespace::~NetworkNamespace() {
    setns(m_original.Get(), CLONE_NEWNET);
    if (!m_path.empty()) {
        umount2(m_path.c_str(), MNT_DETACH);
        unlink(m_path.c_str());
    }
}

Tap MakeTap(const std::string& name, const Subnet& searcher) {
    Tap tap{OpenTun(), {}};
    auto request = RequestFor(name);
    request.ifr_flags = IFF_TAP | IFF_NO_PI;
    if (ioctl(tap.frames.Get(), TUNSETIFF, &request) != 0)
        Fail("cannot make the tap device " + name,
             "it takes CAP_NET_ADMIN; --mode loopback takes none");
    SilenceIpv6(name);
    DeviceSetup(std::string("lo")).SetUp();
    DeviceSetup device(name);
    device.SetAddress(searcher);
    device.SetQueueLength(kTapQueueFrames);
    device.SetUp();
    device.AddMulticastRoute();
    tap.mac = device.HardwareAddress();
    return tap;
}

}  // namespace lansim
