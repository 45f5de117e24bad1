#include "tools/lanscout-sim/network/frames6.h"

#include <tins/ethernetII.h>
#include <tins/exceptions.h>
#include <tins/icmpv6.h>
#include <tins/ipv6.h>
#include <tins/rawpdu.h>
#include <tins/udp.h>

#include "tools/lanscout-sim/network/tinstypes.h"

namespace lansim {
namespace {

using IcmpType = Tins::ICMPv6::Types;

constexpr std::size_t kIpv6HeaderBytes = 40;
constexpr std::size_t kFragmentHeaderBytes = 8;
constexpr std::size_t kFragmentUnitBytes = 8;
constexpr std::uint8_t kFragmentHeader = 44;  // RFC 8200, 4.5
// What comes through a router has less, and is no neighbour's (RFC 4861, 7.1).
constexpr std::uint8_t kNeighbourHops = 255;
constexpr std::uint8_t kHops = 64;

Ipv6 SolicitedNodeOf(const Ipv6& ip) {
    return {
        {0xFF, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0xFF, ip.bytes[13], ip.bytes[14], ip.bytes[15]}};
}

std::string PayloadOf(const Tins::PDU& pdu) {
    const auto* raw = pdu.find_pdu<Tins::RawPDU>();
    return raw == nullptr ? std::string()
                          : std::string(raw->payload().begin(), raw->payload().end());
}

Heard ReadIcmp(const Tins::EthernetII& ethernet, const Tins::IPv6& ip, const Tins::ICMPv6& icmp) {
    const Mac from = FromTins(ethernet.src_addr());
    if (icmp.type() == IcmpType::NEIGHBOUR_SOLICIT && ip.hop_limit() == kNeighbourHops) {
        return NeighbourSolicit{FromTins(ip.src_addr()), from, FromTins(icmp.target_addr())};
    }
    if (icmp.type() == IcmpType::ECHO_REQUEST) {
        return EchoRequest{from,
                           FromTins(ethernet.dst_addr()),
                           FromTins(ip.src_addr()),
                           FromTins(ip.dst_addr()),
                           icmp.identifier(),
                           icmp.sequence(),
                           PayloadOf(icmp)};
    }
    return {};
}

std::string Icmp6Frame(const Mac& from, const Mac& to, Tins::IPv6 ip, const Tins::PDU& content) {
    ip.hop_limit(kNeighbourHops);
    auto frame = Tins::EthernetII(ToTins(to), ToTins(from)) / ip / content;
    return Bytes(frame);
}

// One fragment: the packet's header with the length and the next header of this piece.
std::string Fragment(const std::string& packet, std::size_t at, std::size_t size,
                     std::uint32_t packetId) {
    const std::size_t length = kFragmentHeaderBytes + size;
    const bool isLast = kIpv6HeaderBytes + at + size == packet.size();
    const auto offset = static_cast<std::uint16_t>(at | (isLast ? 0 : 1));
    std::string piece = packet.substr(0, kIpv6HeaderBytes);
    piece[4] = static_cast<char>(length >> 8);
    piece[5] = static_cast<char>(length);
    piece[6] = kFragmentHeader;
    piece += {packet[6], 0, static_cast<char>(offset >> 8), static_cast<char>(offset)};
    for (const unsigned shift : {24U, 16U, 8U, 0U}) {
        piece += static_cast<char>(packetId >> shift);
    }
    return piece + packet.substr(kIpv6HeaderBytes + at, size);
}

std::string InEthernet(const Mac& from, const Mac& to, std::string_view packet) {
    std::string frame(to.begin(), to.end());
    frame.append(from.begin(), from.end());
    frame += {'\x86', '\xDD'};
    frame += packet;
    return frame;
}

}  // namespace

Heard ReadIpv6Frame(std::string_view frame) try {
    const Tins::EthernetII ethernet(reinterpret_cast<const std::uint8_t*>(frame.data()),
                                    static_cast<std::uint32_t>(frame.size()));
    const auto* ip = ethernet.find_pdu<Tins::IPv6>();
    if (ip == nullptr) {
        return {};
    }
    if (const auto* udp = ip->find_pdu<Tins::UDP>()) {
        return Datagram{{FromTins(ip->src_addr()), udp->sport()},
                        {FromTins(ip->dst_addr()), udp->dport()},
                        PayloadOf(*udp),
                        FromTins(ethernet.src_addr()),
                        FromTins(ethernet.dst_addr())};
    }
    const auto* icmp = ip->find_pdu<Tins::ICMPv6>();
    return icmp == nullptr ? Heard{} : ReadIcmp(ethernet, *ip, *icmp);
} catch (const Tins::exception_base&) {
    return {};
}

std::string NeighbourSolicitFrame(const Host6& from, const Ipv6& target) {
    const Ipv6 group = SolicitedNodeOf(target);
    Tins::ICMPv6 icmp(IcmpType::NEIGHBOUR_SOLICIT);
    icmp.target_addr(ToTins(target));
    icmp.source_link_layer_addr(ToTins(from.mac));
    return Icmp6Frame(from.mac, GroupMacOf(group), Tins::IPv6(ToTins(group), ToTins(from.ip)),
                      icmp);
}

std::string NeighbourAdvertFrame(const Host6& from, const NeighbourSolicit& question) {
    Tins::ICMPv6 icmp(IcmpType::NEIGHBOUR_ADVERT);
    icmp.target_addr(ToTins(from.ip));
    icmp.solicited(1);
    icmp.override(1);
    icmp.target_link_layer_addr(ToTins(from.mac));
    return Icmp6Frame(from.mac, question.senderMac,
                      Tins::IPv6(ToTins(question.sender), ToTins(from.ip)), icmp);
}

std::string EchoReply6Frame(const Host6& from, const EchoRequest& request) {
    Tins::ICMPv6 icmp(IcmpType::ECHO_REPLY);
    icmp.identifier(request.id);
    icmp.sequence(request.sequence);
    return Icmp6Frame(from.mac, request.fromMac,
                      Tins::IPv6(ToTins(request.from.V6()), ToTins(from.ip)),
                      icmp / Tins::RawPDU(request.payload));
}

std::string PortUnreachable6Frame(const Mac& from, const Datagram& datagram) {
    constexpr std::uint8_t kPortUnreachable = 4;
    constexpr std::size_t kMostQuotedBytes = 1200;  // the whole stays below the least MTU, 1280
    const auto searcher = ToTins(datagram.from.ip.V6());
    const auto host = ToTins(datagram.to.ip.V6());
    auto refused = Tins::IPv6(host, searcher) / Tins::UDP(datagram.to.port, datagram.from.port) /
                   Tins::RawPDU(datagram.payload);
    Tins::ICMPv6 icmp(IcmpType::DEST_UNREACHABLE);
    icmp.code(kPortUnreachable);
    return Icmp6Frame(from, datagram.fromMac, Tins::IPv6(searcher, host),
                      icmp / Tins::RawPDU(Bytes(refused).substr(0, kMostQuotedBytes)));
}

std::vector<std::string> Udp6Frames(const Mac& from, const Mac& to, const Datagram& datagram,
                                    std::uint32_t packetId, std::size_t mtu) {
    auto ip = Tins::IPv6(ToTins(datagram.to.ip.V6()), ToTins(datagram.from.ip.V6())) /
              Tins::UDP(datagram.to.port, datagram.from.port) / Tins::RawPDU(datagram.payload);
    ip.hop_limit(datagram.to.ip.V6().bytes[0] == 0xFF ? 1 : kHops);
    const std::string packet = Bytes(ip);
    if (packet.size() <= mtu) {
        return {InEthernet(from, to, packet)};
    }
    const std::size_t content = packet.size() - kIpv6HeaderBytes;
    const std::size_t step =
        (mtu - kIpv6HeaderBytes - kFragmentHeaderBytes) / kFragmentUnitBytes * kFragmentUnitBytes;
    std::vector<std::string> frames;
    for (std::size_t at = 0; at < content; at += step) {
        frames.push_back(
            InEthernet(from, to, Fragment(packet, at, std::min(step, content - at), packetId)));
    }
    return frames;
}

}  // namespace lansim
