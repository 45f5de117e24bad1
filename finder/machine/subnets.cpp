// Which subnet an address is in, and how to get into a foreign one.
#include <arpa/inet.h>
#include <fmt/core.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "finder/machine/interfaces.h"
#include "finder/text/addresstext.h"

namespace Lanscout {
namespace {

constexpr int kIpv4Bits = 32;
constexpr int kBitsOfByte = 8;
constexpr int kUsualPrefix = 24;      // of the subnets that cameras come with
constexpr int kLinkLocalPrefix = 16;  // RFC 3927
constexpr std::uint32_t kLinkLocalNetwork = 0xA9FE0000;

std::uint32_t MaskOf(int bits) {
    return bits <= 0 ? 0 : ~std::uint32_t{0} << (kIpv4Bits - std::min(bits, kIpv4Bits));
}

bool SameIpv4Subnet(const std::string& a, const std::string& b, int bits) {
    const auto one = Ipv4Value(a);
    const auto other = Ipv4Value(b);
    return one && other && bits > 0 && ((*one ^ *other) & MaskOf(bits)) == 0;
}

bool SameIpv6Subnet(const std::string& a, const std::string& b, int bits) {
    in6_addr one{};
    in6_addr other{};
    if (bits <= 0 || inet_pton(AF_INET6, a.c_str(), &one) != 1 ||
        inet_pton(AF_INET6, b.c_str(), &other) != 1) {
        return false;
    }
    const int whole = bits / kBitsOfByte;
    const int rest = bits % kBitsOfByte;
    if (std::memcmp(&one, &other, static_cast<std::size_t>(whole)) != 0) {
        return false;
    }
    return rest == 0 || (one.s6_addr[whole] ^ other.s6_addr[whole]) >> (kBitsOfByte - rest) == 0;
}

bool Holds(const LocalAddress& local, const std::string& address) {
    if (IsIpv4Text(address)) {
        return SameIpv4Subnet(local.address, address, local.prefixBits);
    }
    const std::string bare = address.substr(0, address.find('%'));
    return std::any_of(local.ipv6.begin(), local.ipv6.end(), [&](const Ipv6Address& one) {
        return SameIpv6Subnet(one.address, bare, one.prefixBits);
    });
}

int LikelyPrefix(std::uint32_t address) {
    return (address & MaskOf(kLinkLocalPrefix)) == kLinkLocalNetwork ? kLinkLocalPrefix
                                                                     : kUsualPrefix;
}

}  // namespace

bool IsSameInterface(const std::string& a, const std::string& b) {
    return a.substr(0, a.find(':')) == b.substr(0, b.find(':'));
}

bool IsInSubnetOf(const std::vector<LocalAddress>& local, const std::string& interface,
                  const std::string& address) {
    return std::any_of(local.begin(), local.end(), [&](const LocalAddress& one) {
        return IsSameInterface(one.interface, interface) && Holds(one, address);
    });
}

Target TargetTowards(const std::vector<Target>& targets, const std::vector<LocalAddress>& local,
                     const std::string& interface, const std::string& address) {
    Target first{interface, ""};
    for (const Target& target : targets) {
        if (!IsSameInterface(target.interface, interface)) {
            continue;
        }
        if (first.address.empty()) {
            first = target;
        }
        const auto own = std::find_if(local.begin(), local.end(), [&](const LocalAddress& one) {
            return one.interface == target.interface && one.address == target.address;
        });
        if (own != local.end() && SameIpv4Subnet(own->address, address, own->prefixBits)) {
            return target;
        }
    }
    return first;
}

std::string WithZone(const std::string& address, const std::string& interface) {
    in6_addr binary{};
    const bool linkLocal =
        inet_pton(AF_INET6, address.c_str(), &binary) == 1 && IN6_IS_ADDR_LINKLOCAL(&binary);
    return linkLocal ? fmt::format("{}%{}", address, interface) : address;
}

std::string LikelySubnet(const std::string& address) {
    const auto value = Ipv4Value(address);
    if (!value) {
        return {};
    }
    const int prefix = LikelyPrefix(*value);
    return fmt::format("{}/{}", Ipv4Text(*value & MaskOf(prefix)), prefix);
}

std::string CommandToReach(const std::string& address, const std::string& interface,
                           const std::function<bool(const std::string& address)>& taken) {
    constexpr std::uint32_t kFirstHost = 2;  // a router mostly has .1
    constexpr std::uint32_t kLastHost = 254;
    const auto value = Ipv4Value(address);
    if (!value) {
        return {};
    }
    const std::uint32_t network = *value & MaskOf(kUsualPrefix);
    for (std::uint32_t host = kFirstHost; host <= kLastHost; ++host) {
        const std::string own = Ipv4Text(network + host);
        if (network + host != *value && !taken(own)) {
            return fmt::format("ip address add {}/{} dev {}", own, LikelyPrefix(*value), interface);
        }
    }
    return {};
}

}  // namespace Lanscout
