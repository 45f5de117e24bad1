// Whether this machine takes what comes from an address of a foreign subnet.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "finder/machine/netlink.h"

namespace Lanscout {

// The kernel's reverse path filter (net.ipv4.conf.*.rp_filter). The settings are read at once, the
// routes when they are asked for.
class ReturnPath {
public:
    explicit ReturnPath(const std::vector<std::string>& interfaces,
                        const std::filesystem::path& settings = "/proc/sys/net/ipv4/conf");

    // Whether the filter drops datagrams that come from that IPv4 address through that interface.
    bool Drops(const std::string& address, const std::string& interface);

private:
    std::optional<unsigned int> InterfaceTowards(const std::string& address);

    struct Setting {
        int filter = 0;
        unsigned int interface = 0;  // its index
    };
    std::map<std::string, Setting> m_settings;
    std::optional<Netlink> m_netlink;  // only where some setting is on
};

}  // namespace Lanscout
