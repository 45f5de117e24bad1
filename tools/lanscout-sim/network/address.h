// IPv4 and Ethernet addresses, networks, datagrams, and their texts.
#pragma once

#include <netinet/in.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <tuple>

namespace lansim {

// An IPv4 address in host byte order, so that addresses can be counted up.
struct Ipv4 {
    std::uint32_t value = 0;
    bool operator==(const Ipv4&) const = default;
    bool operator<(const Ipv4& other) const { return value < other.value; }
};

using Mac = std::array<std::uint8_t, 6>;

struct Ipv6 {
    std::array<std::uint8_t, 16> bytes{};
    bool operator==(const Ipv6&) const = default;
    bool operator<(const Ipv6& other) const { return bytes < other.bytes; }
};

// The link-local address that a host makes of its MAC address (RFC 4291, 2.5.1 and appendix A).
Ipv6 LinkLocalOf(const Mac& mac);

// An address of either kind. IPv4 stands in it as RFC 4291 maps it, which no packet has.
class IpAddress {
public:
    constexpr IpAddress(Ipv4 ip = {})
        : m_ip{{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, static_cast<std::uint8_t>(ip.value >> 24),
                static_cast<std::uint8_t>(ip.value >> 16), static_cast<std::uint8_t>(ip.value >> 8),
                static_cast<std::uint8_t>(ip.value)}} {}
    constexpr IpAddress(const Ipv6& ip) : m_ip(ip) {}

    bool IsV6() const;
    Ipv4 V4() const;  // zeros when it is none
    const Ipv6& V6() const { return m_ip; }

    bool operator==(const IpAddress&) const = default;
    bool operator<(const IpAddress& other) const { return m_ip < other.m_ip; }

private:
    Ipv6 m_ip;
};

struct Endpoint {
    IpAddress ip;
    std::uint16_t port = 0;
    bool operator==(const Endpoint&) const = default;
    bool operator<(const Endpoint& other) const {
        return std::tie(ip, port) < std::tie(other.ip, other.port);
    }
};

// An address together with the network it stands in, as in 10.99.0.1/16.
struct Subnet {
    Ipv4 address;
    int prefixBits = 0;

    Ipv4 Mask() const;
    Ipv4 Network() const;
    Ipv4 Broadcast() const;
    bool Contains(Ipv4 ip) const;
};

struct Datagram {
    Endpoint from;
    Endpoint to;
    std::string payload;
    // Which of several hosts at one IP address sends it or is meant; zeros where the network has no
    // Ethernet addresses or the first host will do.
    Mac fromMac{};
    Mac toMac{};
};

// Whether a datagram to a single address reaches the host that has both of these.
bool IsFor(const Datagram& datagram, const IpAddress& ip, const Mac& mac);

// Dotted quad only; nothing for any other text.
std::optional<Ipv4> ParseIpv4(const std::string& text);
// What inet_pton reads; no zone.
std::optional<Ipv6> ParseIpv6(const std::string& text);
// Six two-digit hexadecimal bytes joined by colons.
std::optional<Mac> ParseMac(const std::string& text);
// ADDRESS/BITS with 8 to 30 bits.
std::optional<Subnet> ParseSubnet(const std::string& text);

std::string ToText(Ipv4 ip);
std::string ToText(const Ipv6& ip);
std::string ToText(const IpAddress& ip);
std::string ToText(const Mac& mac);
std::string ToText(const Subnet& subnet);

// Of IPv4 endpoints.
sockaddr_in ToSockaddr(const Endpoint& endpoint);
Endpoint FromSockaddr(const sockaddr_in& address);

}  // namespace lansim
