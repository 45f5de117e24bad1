#include "finder/source/frame.h"

#include <arpa/inet.h>
#include <fmt/core.h>
#include <net/ethernet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace Lanscout {
namespace {

constexpr std::size_t kMacBytes = 6;
constexpr std::size_t kUdpHeaderBytes = 8;
constexpr std::size_t kIpv4HeaderBytes = 20;
constexpr std::size_t kIpv6HeaderBytes = 40;
constexpr std::size_t kFragmentHeaderBytes = 8;  // RFC 8200, 4.5
constexpr std::size_t kArpBytes = 28;            // RFC 826, for IPv4 on Ethernet

std::uint8_t Byte(std::string_view bytes, std::size_t at) {
    return static_cast<std::uint8_t>(bytes[at]);
}

std::uint16_t Word(std::string_view bytes, std::size_t at) {
    return static_cast<std::uint16_t>(Byte(bytes, at) << 8 | Byte(bytes, at + 1));
}

std::string Ipv4At(std::string_view bytes, std::size_t at) {
    return fmt::format("{}.{}.{}.{}", Byte(bytes, at), Byte(bytes, at + 1), Byte(bytes, at + 2),
                       Byte(bytes, at + 3));
}

std::string Ipv6At(std::string_view bytes, std::size_t at) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    inet_ntop(AF_INET6, &bytes[at], text.data(), text.size());
    return text.data();
}

// Empty for a group's or nobody's.
std::string MacAt(std::string_view bytes, std::size_t at) {
    constexpr std::uint8_t kGroupBit = 1;
    const std::string_view mac = bytes.substr(at, kMacBytes);
    if ((Byte(mac, 0) & kGroupBit) != 0 || mac.find_first_not_of('\0') == std::string_view::npos) {
        return {};
    }
    return fmt::format("{:02X}:{:02X}:{:02X}:{:02X}:{:02X}:{:02X}", Byte(mac, 0), Byte(mac, 1),
                       Byte(mac, 2), Byte(mac, 3), Byte(mac, 4), Byte(mac, 5));
}

// Adds the ports and the payload of what stands behind the IP header.
std::optional<Frame> WithUdp(DatagramFrame frame, std::string_view udp) {
    if (frame.mac.empty() || udp.size() < kUdpHeaderBytes) {
        return std::nullopt;
    }
    frame.fromPort = Word(udp, 0);
    frame.toPort = Word(udp, 2);
    const std::size_t length = std::max<std::size_t>(Word(udp, 4), kUdpHeaderBytes);
    frame.payload = udp.substr(0, length).substr(kUdpHeaderBytes);
    return frame;
}

std::optional<Frame> ReadIpv4(std::string mac, std::string_view packet) {
    constexpr std::uint16_t kOffsetMask = 0x1FFF;
    if (packet.size() < kIpv4HeaderBytes || Byte(packet, 0) >> 4 != 4) {
        return std::nullopt;
    }
    const std::size_t header = static_cast<std::size_t>(Byte(packet, 0) & 0x0FU) * 4;
    packet = packet.substr(0, Word(packet, 2));  // a short frame is padded
    if (header < kIpv4HeaderBytes || packet.size() < header || Byte(packet, 9) != IPPROTO_UDP ||
        (Word(packet, 6) & kOffsetMask) != 0) {
        return std::nullopt;
    }
    return WithUdp({std::move(mac), Ipv4At(packet, 12), Ipv4At(packet, 16), 0, 0, {}},
                   packet.substr(header));
}

std::optional<Frame> ReadIpv6(std::string mac, std::string_view packet) {
    constexpr std::uint16_t kOffsetMask = 0xFFF8;
    if (packet.size() < kIpv6HeaderBytes || Byte(packet, 0) >> 4 != 6) {
        return std::nullopt;
    }
    std::uint8_t next = Byte(packet, 6);
    std::string_view rest = packet.substr(kIpv6HeaderBytes, Word(packet, 4));
    if (next == IPPROTO_FRAGMENT) {
        if (rest.size() < kFragmentHeaderBytes || (Word(rest, 2) & kOffsetMask) != 0) {
            return std::nullopt;
        }
        next = Byte(rest, 0);
        rest.remove_prefix(kFragmentHeaderBytes);
    }
    if (next != IPPROTO_UDP) {
        return std::nullopt;
    }
    return WithUdp({std::move(mac), Ipv6At(packet, 8), Ipv6At(packet, 24), 0, 0, {}}, rest);
}

std::optional<Frame> ReadArp(std::string_view packet) {
    constexpr std::string_view kIpv4Request("\0\1\x08\0\6\4\0\1", 8);  // types, sizes, operation
    if (packet.size() < kArpBytes || !packet.starts_with(kIpv4Request)) {
        return std::nullopt;
    }
    ArpRequestFrame request{MacAt(packet, 8), Ipv4At(packet, 14), Ipv4At(packet, 24)};
    return request.mac.empty() ? std::nullopt : std::optional<Frame>(std::move(request));
}

}  // namespace

// pcap-filter's "port" does not look behind IPv6's header of fragments.
const char* const kFrameFilter =
    "udp port 3702 or (arp[6:2] == 1) or (ip6[6] == 44 and ip6[40] == 17 and "
    "ip6[42:2] & 0xfff8 == 0 and (ip6[48:2] == 3702 or ip6[50:2] == 3702))";

std::optional<Frame> ReadFrame(std::string_view bytes) {
    if (bytes.size() < sizeof(ether_header)) {
        return std::nullopt;
    }
    const std::string_view packet = bytes.substr(sizeof(ether_header));
    switch (Word(bytes, 2 * kMacBytes)) {
        case ETHERTYPE_IP:
            return ReadIpv4(MacAt(bytes, kMacBytes), packet);
        case ETHERTYPE_IPV6:
            return ReadIpv6(MacAt(bytes, kMacBytes), packet);
        case ETHERTYPE_ARP:
            return ReadArp(packet);
        default:
            return std::nullopt;
    }
}

}  // namespace Lanscout
