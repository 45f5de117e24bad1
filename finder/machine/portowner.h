// Which process holds a UDP port, as far as the kernel tells this user.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace Lanscout {

struct PortOwner {
    int pid = 0;       // 0: not to be seen by this user
    std::string name;  // the process's name; empty with pid 0
    unsigned int uid = 0;
};

// The process that keeps `address` (dotted-decimal) and `port` from being bound: by that address or
// by the wildcard one, of IPv4 or IPv6. Nothing when no socket does. The kernel names the socket
// (sock_diag), and the folder of processes tells whose it is.
std::optional<PortOwner> FindUdpPortOwner(const std::string& address, std::uint16_t port,
                                          const std::filesystem::path& proc = "/proc");

// "wsdd (process 123)", or what can be said without the right to look.
std::string PortOwnerText(const std::optional<PortOwner>& owner);

}  // namespace Lanscout
