// The kernel's table of neighbours.
#pragma once

#include <filesystem>
#include <string>

namespace Lanscout {

// The MAC address of a neighbour that the kernel knows on that interface, or empty.
std::string MacFromArpCache(const std::string& ip, const std::string& interface,
                            const std::filesystem::path& table = "/proc/net/arp");

}  // namespace Lanscout
