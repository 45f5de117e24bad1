// Ethernet frames: reading the searcher's, writing the devices'.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "tools/lanscout-sim/network/address.h"

namespace lansim {

inline constexpr std::size_t kEthernetMtu = 1500;

struct ArpRequest {
    Ipv4 senderIp;
    Mac senderMac{};
    Ipv4 target;
};

// TCP is not spoken here but handed on whole, as an IP packet, or refused.
struct TcpPacket {
    Mac fromMac{};
    Mac toMac{};
    Ipv4 from;
    Ipv4 to;
    std::uint16_t toPort = 0;
    std::string packet;
};

// IPv6's question for the owner of an address.
struct NeighbourSolicit {
    Ipv6 sender;
    Mac senderMac{};
    Ipv6 target;
};

struct EchoRequest {
    Mac fromMac{};
    Mac toMac{};
    IpAddress from;
    IpAddress to;
    std::uint16_t id = 0;
    std::uint16_t sequence = 0;
    std::string payload;
};

// What a frame from the searcher means to the simulated devices; monostate is anything else.
using Heard =
    std::variant<std::monostate, ArpRequest, NeighbourSolicit, Datagram, EchoRequest, TcpPacket>;
Heard ReadFrame(std::string_view frame);

struct Host {
    Ipv4 ip;
    Mac mac{};
};

std::string ArpReplyFrame(const Host& from, const Host& to);
std::string ArpRequestFrame(const Host& from, Ipv4 target);
// The source and destination of an IPv4 packet; nothing when it is none.
struct IpEnds {
    Ipv4 from;
    Ipv4 to;
};
std::optional<IpEnds> EndsOf(std::string_view packet);
std::string IpFrame(const Mac& from, const Mac& to, std::string_view packet);
std::string EchoReplyFrame(const Mac& from, const EchoRequest& request);
// What a host says of a segment to a port where nothing listens (RFC 9293, 3.5.2); empty when that
// is nothing.
std::string TcpRefusalFrame(const Mac& from, const TcpPacket& packet);
// The same of a datagram (RFC 1122, 4.1.3.1, or RFC 4443, 3.1).
std::string PortUnreachableFrame(const Mac& from, const Datagram& datagram);
// Where a multicast IPv6 packet goes on Ethernet (RFC 2464, 7).
Mac GroupMacOf(const Ipv6& group);
// One frame, or as many IP fragments as the MTU asks for.
std::vector<std::string> UdpFrames(const Mac& from, const Mac& to, const Datagram& datagram,
                                   std::uint16_t ipId, std::size_t mtu = kEthernetMtu);

}  // namespace lansim
