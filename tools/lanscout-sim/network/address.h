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

struct Endpoint {
    Ipv4 ip;
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
bool IsFor(const Datagram& datagram, Ipv4 ip, const Mac& mac);

// Dotted quad only; nothing for any other text.
std::optional<Ipv4> ParseIpv4(const std::string& text);
// Six two-digit hexadecimal bytes joined by colons.
std::optional<Mac> ParseMac(const std::string& text);
// ADDRESS/BITS with 8 to 30 bits.
std::optional<Subnet> ParseSubnet(const std::string& text);

std::string ToText(Ipv4 ip);
std::string ToText(const Mac& mac);
std::string ToText(const Subnet& subnet);

sockaddr_in ToSockaddr(const Endpoint& endpoint);
Endpoint FromSockaddr(const sockaddr_in& address);

}  // namespace lansim
