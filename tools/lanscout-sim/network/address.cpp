#include "tools/lanscout-sim/network/address.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>

namespace lansim {
namespace {

constexpr std::array<std::uint8_t, 12> kMappedPrefix = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};

}  // namespace

Ipv4 Subnet::Mask() const {
    return Ipv4{prefixBits == 0 ? 0 : ~std::uint32_t{0} << (32 - prefixBits)};
}

Ipv4 Subnet::Network() const {
    return Ipv4{address.value & Mask().value};
}

Ipv4 Subnet::Broadcast() const {
    return Ipv4{address.value | ~Mask().value};
}

bool Subnet::Contains(Ipv4 ip) const {
    return (ip.value & Mask().value) == Network().value;
}

Ipv6 LinkLocalOf(const Mac& mac) {
    constexpr std::uint8_t kUniversalBit = 2;
    return {{0xFE, 0x80, 0, 0, 0, 0, 0, 0, static_cast<std::uint8_t>(mac[0] ^ kUniversalBit),
             mac[1], mac[2], 0xFF, 0xFE, mac[3], mac[4], mac[5]}};
}

bool IpAddress::IsV6() const {
    return !std::equal(kMappedPrefix.begin(), kMappedPrefix.end(), m_ip.bytes.begin());
}

Ipv4 IpAddress::V4() const {
    if (IsV6()) {
        return {};
    }
    std::uint32_t value = 0;
    for (auto byte = m_ip.bytes.begin() + kMappedPrefix.size(); byte != m_ip.bytes.end(); ++byte) {
        value = value << 8 | *byte;
    }
    return Ipv4{value};
}

bool IsFor(const Datagram& datagram, const IpAddress& ip, const Mac& mac) {
    return datagram.to.ip == ip && (datagram.toMac == Mac{} || datagram.toMac == mac);
}

std::optional<Ipv4> ParseIpv4(const std::string& text) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
        return std::nullopt;
    }
    return Ipv4{ntohl(address.s_addr)};
}

std::optional<Ipv6> ParseIpv6(const std::string& text) {
    Ipv6 ip;
    if (inet_pton(AF_INET6, text.c_str(), ip.bytes.data()) != 1) {
        return std::nullopt;
    }
    return ip;
}

std::optional<Mac> ParseMac(const std::string& text) {
    constexpr std::size_t kTextBytes = 17;
    if (text.size() != kTextBytes) {
        return std::nullopt;
    }
    Mac mac{};
    for (std::size_t i = 0; i < mac.size(); ++i) {
        const char* digits = &text[3 * i];
        const auto [end, error] = std::from_chars(digits, digits + 2, mac.at(i), 16);
        const bool isJoined = i + 1 == mac.size() || digits[2] == ':';
        if (error != std::errc{} || end != digits + 2 || !isJoined) {
            return std::nullopt;
        }
    }
    return mac;
}

std::optional<Subnet> ParseSubnet(const std::string& text) {
    const auto slash = text.find('/');
    if (slash == std::string::npos) {
        return std::nullopt;
    }
    const auto ip = ParseIpv4(text.substr(0, slash));
    int bits = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data() + slash + 1, end, bits);
    if (!ip || error != std::errc{} || rest != end || bits < 8 || bits > 30) {
        return std::nullopt;
    }
    return Subnet{*ip, bits};
}

std::string ToText(Ipv4 ip) {
    return fmt::format("{}.{}.{}.{}", ip.value >> 24, (ip.value >> 16) & 255, (ip.value >> 8) & 255,
                       ip.value & 255);
}

std::string ToText(const Ipv6& ip) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    inet_ntop(AF_INET6, ip.bytes.data(), text.data(), text.size());
    return text.data();
}

std::string ToText(const IpAddress& ip) {
    return ip.IsV6() ? ToText(ip.V6()) : ToText(ip.V4());
}

std::string ToText(const Mac& mac) {
    return fmt::format("{:02X}", fmt::join(mac, ":"));
}

std::string ToText(const Subnet& subnet) {
    return fmt::format("{}/{}", ToText(subnet.address), subnet.prefixBits);
}

sockaddr_in ToSockaddr(const Endpoint& endpoint) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(endpoint.port);
    address.sin_addr.s_addr = htonl(endpoint.ip.V4().value);
    return address;
}

Endpoint FromSockaddr(const sockaddr_in& address) {
    return {Ipv4{ntohl(address.sin_addr.s_addr)}, ntohs(address.sin_port)};
}

}  // namespace lansim
