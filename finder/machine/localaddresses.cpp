// The interfaces of this machine, as the kernel lists them.
#include <arpa/inet.h>
#include <fmt/core.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <algorithm>
#include <array>
#include <bit>
#include <map>
#include <memory>

#include "finder/machine/container.h"
#include "finder/machine/interfaces.h"
#include "finder/text/addresstext.h"

namespace Lanscout {
namespace {

using Ipv6ByName = std::map<std::string, std::vector<Ipv6Address>>;

std::uint32_t Value(const sockaddr* address) {
    return ntohl(reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr);
}

LocalAddress Bare(const ifaddrs& entry) {
    LocalAddress one;
    one.interface = entry.ifa_name;
    one.up = (entry.ifa_flags & IFF_UP) != 0;
    one.loopback = (entry.ifa_flags & IFF_LOOPBACK) != 0;
    one.multicast = (entry.ifa_flags & IFF_MULTICAST) != 0;
    return one;
}

LocalAddress WithIpv4(const ifaddrs& entry) {
    LocalAddress one = Bare(entry);
    one.address = Ipv4Text(Value(entry.ifa_addr));
    if (entry.ifa_netmask != nullptr) {
        const std::uint32_t mask = Value(entry.ifa_netmask);
        one.prefixBits = std::popcount(mask);
        one.network = fmt::format("{}/{}", Ipv4Text(Value(entry.ifa_addr) & mask), one.prefixBits);
    }
    return one;
}

Ipv6Address ReadIpv6(const ifaddrs& entry) {
    const in6_addr& address = reinterpret_cast<const sockaddr_in6*>(entry.ifa_addr)->sin6_addr;
    std::array<char, INET6_ADDRSTRLEN> text{};
    inet_ntop(AF_INET6, &address, text.data(), text.size());
    int bits = 0;
    if (entry.ifa_netmask != nullptr) {
        for (const unsigned char byte :
             reinterpret_cast<const sockaddr_in6*>(entry.ifa_netmask)->sin6_addr.s6_addr) {
            bits += std::popcount(byte);
        }
    }
    return {text.data(), bits, IN6_IS_ADDR_LINKLOCAL(&address)};
}

bool IsListed(const std::vector<LocalAddress>& local, const std::string& interface) {
    return std::any_of(local.begin(), local.end(),
                       [&](const LocalAddress& one) { return one.interface == interface; });
}

// An alias ("eth0:1") has the IPv6 addresses of its interface.
std::string WithoutAlias(const std::string& name) {
    return name.substr(0, name.find(':'));
}

}  // namespace

std::vector<LocalAddress> ReadLocalAddresses() {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return {};
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
    std::vector<LocalAddress> local;
    Ipv6ByName ipv6;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET) {
            local.push_back(WithIpv4(*entry));
        } else if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET6) {
            ipv6[entry->ifa_name].push_back(ReadIpv6(*entry));
        }
    }
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (!IsListed(local, entry->ifa_name)) {
            local.push_back(Bare(*entry));
        }
    }
    const bool container = IsInContainer();
    for (LocalAddress& one : local) {
        one.bridged = container && IsVirtualCable(WithoutAlias(one.interface));
        if (const auto found = ipv6.find(WithoutAlias(one.interface)); found != ipv6.end()) {
            one.ipv6 = found->second;
        }
    }
    return local;
}

}  // namespace Lanscout
