#include "finder/source/upnpsearch.h"

#include <fmt/core.h>
#include <linux/if_addr.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <optional>
#include <string>
#include <thread>

#include "finder/machine/descriptor.h"
#include "finder/machine/portowner.h"
#include "finder/source/confine.h"
#include "finder/source/description.h"
#include "utils/upnpsearchbase.h"

namespace Lanscout {
namespace {

constexpr std::chrono::milliseconds kPollInterval{50};
constexpr std::chrono::milliseconds kLastAnswers{200};
constexpr int kFirstPort = 49152;    // of the dynamic ones (RFC 6335); libupnp's own choice
constexpr int kPortsPerSearch = 64;  // so that searches at once try different ones
constexpr int kLastPort = 65535;
constexpr int kSsdpPort = 1900;  // UPnP Device Architecture 1.0

// Some releases of libupnp bind to the interface's IPv6 address too. That is refused while the
// kernel looks whether another host has the address, a second or two after the interface came up.
constexpr std::chrono::seconds kLongestIpv6Check{3};

class Search : public UpnpSearchBase {
public:
    Search(const Target& target, int port, int seconds, Sender& sender)
        : UpnpSearchBase(target.address, port, seconds), m_target(target), m_sender(sender) {}
    ~Search() override { StopSearch(); }

protected:
    void OnDeviceDiscovered(const std::string& descriptionXml, const char* location) override {
        if (std::optional<Device> device = ReadDescription(descriptionXml, location)) {
            m_sender.Send(SightingMessage{{SourceId::UpnpSearch, m_target, std::move(*device)}});
        }
    }

private:
    Target m_target;
    Sender& m_sender;
};

// A socket of that kind bound to the address, as libupnp does: shared where that is said.
template <typename Address>
bool CanBind(int kind, const Address& address, bool shared) {
    const int family = reinterpret_cast<const sockaddr*>(&address)->sa_family;
    const Descriptor socket(::socket(family, kind | SOCK_CLOEXEC, 0));
    if (!socket) {
        return family == AF_INET6;  // without IPv6 nobody else has the port there either
    }
    const int yes = 1;
    if (shared) {
        setsockopt(socket.Fd(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    }
    if (family == AF_INET6) {
        setsockopt(socket.Fd(), IPPROTO_IPV6, IPV6_V6ONLY, &yes, sizeof yes);
    }
    const bool can =
        bind(socket.Fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    return can || (family == AF_INET6 && errno == EADDRNOTAVAIL);
}

sockaddr_in AnyAddress(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return address;
}

// libupnp listens at the address and at the wildcard address of IPv6, which takes a listener at any
// IPv4 address of this machine for a rival.
bool IsFree(int port) {
    sockaddr_in6 v6{};
    v6.sin6_family = AF_INET6;
    v6.sin6_port = htons(static_cast<std::uint16_t>(port));
    return CanBind(SOCK_STREAM, AnyAddress(port), false) && CanBind(SOCK_STREAM, v6, false);
}

// proc(5): a line an address; address, index, prefix length, scope and flags are hexadecimal.
bool IsIpv6Tentative(const std::string& interface) {
    std::ifstream addresses("/proc/net/if_inet6");
    std::string address;
    std::string index;
    std::string prefix;
    std::string scope;
    std::string name;
    unsigned int flags = 0;
    while (addresses >> address >> index >> prefix >> scope >> std::hex >> flags >> name) {
        if (name == interface && (flags & IFA_F_TENTATIVE) != 0 && (flags & IFA_F_DADFAILED) == 0) {
            return true;
        }
    }
    return false;
}

void AwaitIpv6(const std::string& label) {
    const std::string interface =
        label.substr(0, label.find(':'));  // an alias has no IPv6 of its own
    const auto end = std::chrono::steady_clock::now() + kLongestIpv6Check;
    while (IsIpv6Tentative(interface) && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(kPollInterval);
    }
}

// Looked for beforehand: libupnp 1.8.4 tries no other port, and what a failed start leaves behind
// in the process is its own affair.
std::optional<int> FindFreePort(int number) {
    const int first = kFirstPort + number * kPortsPerSearch % (kLastPort - kFirstPort);
    for (int port = first; port <= kLastPort && port < first + kPortsPerSearch; ++port) {
        if (IsFree(port)) {
            return port;
        }
    }
    return std::nullopt;
}

// Who keeps SSDP's port for himself, or empty. To be asked beforehand: later this process may look
// at no other one.
std::string SsdpPortHolder() {
    return CanBind(SOCK_DGRAM, AnyAddress(kSsdpPort), true)
               ? std::string()
               : PortOwnerText(FindUdpPortOwner("0.0.0.0", kSsdpPort));
}

std::string StartFailure(const Target& target, int port, int code, const std::string& holder) {
    switch (code) {
        case UPNP_E_SOCKET_BIND:
            if (!holder.empty()) {
                return fmt::format("UDP port {} is taken by {}, which does not share it", kSsdpPort,
                                   holder);
            }
            return fmt::format("TCP port {} was taken by another process meanwhile; try again",
                               port);
        case UPNP_E_INVALID_INTERFACE:
            return fmt::format(
                "the installed libupnp does not search on {}, its interface is down "
                "or the loopback's",
                target.address);
        default:
            return fmt::format("libupnp could not be started: its error code is {}", code);
    }
}

}  // namespace

void RunUpnpSearch(const Job& job, Sender& sender) {
    const Target& target = job.targets.front();
    const auto end = std::chrono::steady_clock::now() + job.request.timeout + kLastAnswers;
    AwaitIpv6(target.interface);
    const std::optional<int> port = FindFreePort(job.number);
    if (!port) {
        return sender.Send(
            FailureMessage{target, "no TCP port is free for libupnp to listen at", ""});
    }
    const std::string holder = SsdpPortHolder();
    ConfineSource(
        {.sockets = true, .connections = true, .threads = true, .time = job.request.timeout},
        sender);
    Search search(target, *port, static_cast<int>(job.request.timeout.count()), sender);
    if (const int code = search.StartSearch(); code != 0) {
        return sender.Send(FailureMessage{target, StartFailure(target, *port, code, holder), ""});
    }
    while (std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(kPollInterval);
    }
    sender.Send(DoneMessage{});
    // StopSearch would wait for descriptions that do not come, and for connections that a stranger
    // holds open at libupnp's port. The process is at its end either way.
    _exit(0);
}

}  // namespace Lanscout
