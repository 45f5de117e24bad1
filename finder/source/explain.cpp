#include "finder/source/explain.h"

#include <fmt/core.h>

#include <cerrno>
#include <charconv>
#include <cstring>

#include "finder/machine/portowner.h"

namespace Lanscout {
namespace {

constexpr std::uint16_t kDiscoveryPort = 3702;  // WS-Discovery

// The number in the brackets behind `text`; nothing when the line does not hold the text.
std::optional<int> NumberBehind(std::string_view line, std::string_view text) {
    const auto at = line.find(text);
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view rest = line.substr(at + text.size());
    int number = 0;
    std::from_chars(rest.data(), rest.data() + rest.size(), number);
    return number;
}

std::string ErrorText(int number) {
    return fmt::format("{} (errno {})", std::strerror(number), number);
}

std::string DeviceName(const Target& target) {
    return target.interface.empty() ? "INTERFACE" : target.interface;
}

void ExplainBind(Problem& problem, int number) {
    const std::string& address = problem.target.address;
    switch (number) {
        case EADDRINUSE:
            problem.what = fmt::format("UDP port {} of this address is taken by {}", kDiscoveryPort,
                                       PortOwnerText(FindUdpPortOwner(address, kDiscoveryPort)));
            problem.remedy = "Stop that program for the time of the search";
            break;
        case EADDRNOTAVAIL:
            problem.what = "no interface of this machine has that address any more";
            problem.remedy = "ip -4 address lists those that there are";
            break;
        case EACCES:
        case EPERM:
            problem.what = fmt::format("binding UDP port {} is not permitted", kDiscoveryPort);
            problem.remedy = "Run it as root, or allow it in the sandbox that it runs in";
            break;
        default:
            problem.what =
                fmt::format("cannot bind UDP port {}: {}", kDiscoveryPort, ErrorText(number));
    }
}

void ExplainSend(Problem& problem, int number) {
    const std::string device = DeviceName(problem.target);
    switch (number) {
        // Not for want of a multicast route: a socket that is bound to an address needs none.
        case ENETUNREACH:
        case EHOSTUNREACH:
        case EINVAL:
            problem.what = "the address is no longer this machine's, so no Probe can be sent";
            problem.remedy =
                fmt::format("See what is there with: ip -4 address show dev {}", device);
            break;
        case ENETDOWN:
        case ENODEV:
            problem.what = "the interface is down, so no Probe can be sent";
            problem.remedy = fmt::format("Bring it up with: ip link set dev {} up", device);
            break;
        case EPERM:
        case EACCES:
            problem.what = "sending a Probe is not permitted";
            problem.remedy = "A firewall rule of this machine may forbid UDP to 239.255.255.250";
            break;
        default:
            problem.what = "sending a Probe failed: " + ErrorText(number);
    }
}

}  // namespace

std::optional<Problem> ExplainLogLine(const Target& target, std::string_view line) {
    Problem problem{Problem::Weight::Error, target, ProtocolText(Protocol::Onvif), "", ""};
    if (const auto bind = NumberBehind(line, "Bind socket failed. [")) {
        ExplainBind(problem, *bind);
    } else if (const auto send = NumberBehind(line, "Send probe message failed. [")) {
        ExplainSend(problem, *send);
    } else if (const auto socket = NumberBehind(line, "Create socket failed. [")) {
        problem.what = "no socket could be created: " + ErrorText(*socket);
    } else if (const auto thread = NumberBehind(line, "Create Thread Failed: [")) {
        problem.what = "no thread could be created: " + ErrorText(*thread);
    } else if (line.find("Set recv timeout failed.") != std::string_view::npos) {
        problem.what = "the socket's receive timeout could not be set";
    } else {
        return std::nullopt;
    }
    return problem;
}

}  // namespace Lanscout
