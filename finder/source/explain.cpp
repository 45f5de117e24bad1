#include "finder/source/explain.h"

#include <fmt/core.h>

#include <cerrno>
#include <cstring>

#include "finder/machine/portowner.h"

namespace Lanscout {
namespace {

std::string ErrorText(int number) {
    return fmt::format("{} (errno {})", std::strerror(number), number);
}

std::string DeviceName(const Target& target) {
    return target.interface.empty() ? "INTERFACE" : target.interface;
}

}  // namespace

FailureMessage ExplainBind(const Target& target, int error, int port) {
    FailureMessage failure{target, "", ""};
    const std::string name = port == 0 ? "a UDP port" : fmt::format("UDP port {}", port);
    const std::string& address = target.address;
    switch (error) {
        case EADDRINUSE:
            failure.what = fmt::format(
                "{} of this address is taken by {}", name,
                PortOwnerText(FindUdpPortOwner(address, static_cast<std::uint16_t>(port))));
            failure.remedy = "Stop that program for the time of the search";
            break;
        case EADDRNOTAVAIL:
            failure.what = "no interface of this machine has that address any more";
            failure.remedy = "ip -4 address lists those that there are";
            break;
        case EACCES:
        case EPERM:
            failure.what = fmt::format("binding {} is not permitted", name);
            failure.remedy = "Run it as root, or allow it in the sandbox that it runs in";
            break;
        default:
            failure.what = fmt::format("cannot bind {}: {}", name, ErrorText(error));
    }
    return failure;
}

FailureMessage ExplainSend(const Target& target, int error) {
    FailureMessage failure{target, "", ""};
    const std::string device = DeviceName(target);
    switch (error) {
        // Not for want of a multicast route: a socket that is bound to an address needs none.
        case ENETUNREACH:
        case EHOSTUNREACH:
        case EINVAL:
            failure.what = "the address is no longer this machine's, so no Probe can be sent";
            failure.remedy =
                fmt::format("See what is there with: ip -4 address show dev {}", device);
            break;
        case ENETDOWN:
        case ENODEV:
            failure.what = "the interface is down, so no Probe can be sent";
            failure.remedy = fmt::format("Bring it up with: ip link set dev {} up", device);
            break;
        case EPERM:
        case EACCES:
            failure.what = "sending a Probe is not permitted";
            failure.remedy = "A firewall rule of this machine may forbid UDP to 239.255.255.250";
            break;
        default:
            failure.what = "sending a Probe failed: " + ErrorText(error);
    }
    return failure;
}

FailureMessage ExplainOther(const Target& target, const char* what, int error) {
    return {target, error == 0 ? what : fmt::format("{}: {}", what, ErrorText(error)), ""};
}

}  // namespace Lanscout
