#include "tools/lanscout-sim/network/frames.h"

#include <tins/arp.h>
#include <tins/ethernetII.h>
#include <tins/exceptions.h>
#include <tins/icmp.h>
#include <tins/ip.h>
#include <tins/rawpdu.h>
#include <tins/tcp.h>
#include <tins/udp.h>

#include "tools/lanscout-sim/network/frames6.h"
#include "tools/lanscout-sim/network/tinstypes.h"

#include "tools/lanscout-sim/network/network.h"

namespace lansim {
namespace {

constexpr std::size_t kEthernetHeaderBytes = 14;
constexpr std::size_t kIpHeaderBytes = 20;
constexpr std::size_t kFragmentUnitBytes = 8;

std::string PayloadOf(const Tins::PDU& pdu) {
    const auto* raw = pdu.find_pdu<Tins::RawPDU>();
    if (raw == nullptr) {
        return {};
    }
    return {raw->payload().begin(), raw->payload().end()};
}

Heard ReadArp(const Tins::ARP& arp) {
    if (arp.opcode() != Tins::ARP::REQUEST) {
        return {};
    }
    return ArpRequest{FromTins(arp.sender_ip_addr()), FromTins(arp.sender_hw_addr()),
                      FromTins(arp.target_ip_addr())};
}

Heard ReadIp(const Tins::EthernetII& ethernet, const Tins::IP& ip, std::string_view packet) {
    const Mac from = FromTins(ethernet.src_addr());
    const Mac to = FromTins(ethernet.dst_addr());
    if (const auto* tcp = ip.find_pdu<Tins::TCP>()) {
        return TcpPacket{from,
                         to,
                         FromTins(ip.src_addr()),
                         FromTins(ip.dst_addr()),
                         tcp->dport(),
                         std::string(packet.substr(0, ip.tot_len()))};
    }
    if (const auto* udp = ip.find_pdu<Tins::UDP>()) {
        return Datagram{{FromTins(ip.src_addr()), udp->sport()},
                        {FromTins(ip.dst_addr()), udp->dport()},
                        PayloadOf(*udp),
                        from,
                        to};
    }
    const auto* icmp = ip.find_pdu<Tins::ICMP>();
    if (icmp != nullptr && icmp->type() == Tins::ICMP::ECHO_REQUEST) {
        return EchoRequest{from,
                           to,
                           FromTins(ip.src_addr()),
                           FromTins(ip.dst_addr()),
                           icmp->id(),
                           icmp->sequence(),
                           PayloadOf(*icmp)};
    }
    return {};
}

// What is multicast stays near: two routers for SSDP (UPnP Device Architecture 1.1, 1.1), none for
// WS-Discovery (SOAP-over-UDP, 3.2).
std::uint8_t TtlOf(const Endpoint& to) {
    const bool isMulticast = to.ip.V4().value >> 28 == 14;
    return isMulticast ? (to.port == kSsdpPort ? 2 : 1) : 64;
}

}  // namespace

Mac GroupMacOf(const Ipv6& group) {
    return {0x33, 0x33, group.bytes[12], group.bytes[13], group.bytes[14], group.bytes[15]};
}

Heard ReadFrame(std::string_view frame) try {
    if (frame.substr(0, kEthernetHeaderBytes).ends_with("\x86\xDD")) {
        return ReadIpv6Frame(frame);
    }
    const Tins::EthernetII ethernet(reinterpret_cast<const std::uint8_t*>(frame.data()),
                                    static_cast<std::uint32_t>(frame.size()));
    if (const auto* arp = ethernet.find_pdu<Tins::ARP>()) {
        return ReadArp(*arp);
    }
    if (const auto* ip = ethernet.find_pdu<Tins::IP>()) {
        return ReadIp(ethernet, *ip, frame.substr(kEthernetHeaderBytes));
    }
    return {};
} catch (const Tins::exception_base&) {
    return {};
}

std::string TcpRefusalFrame(const Mac& from, const TcpPacket& packet) try {
    using Flags = Tins::TCP::Flags;
    const Tins::IP ip(reinterpret_cast<const std::uint8_t*>(packet.packet.data()),
                      static_cast<std::uint32_t>(packet.packet.size()));
    const auto* segment = ip.find_pdu<Tins::TCP>();
    if (segment == nullptr || segment->get_flag(Flags::RST) != 0) {
        return {};
    }
    Tins::TCP reset(segment->sport(), segment->dport());
    if (segment->get_flag(Flags::ACK) != 0) {
        reset.flags(Flags::RST);
        reset.seq(segment->ack_seq());
    } else {
        const auto controls = segment->get_flag(Flags::SYN) + segment->get_flag(Flags::FIN);
        reset.flags(Flags::RST | Flags::ACK);
        reset.ack_seq(segment->seq() + static_cast<std::uint32_t>(PayloadOf(*segment).size()) +
                      static_cast<std::uint32_t>(controls));
    }
    auto frame = Tins::EthernetII(ToTins(packet.fromMac), ToTins(from)) /
                 Tins::IP(ip.src_addr(), ip.dst_addr()) / reset;
    return Bytes(frame);
} catch (const Tins::exception_base&) {
    return {};
}

std::string PortUnreachableFrame(const Mac& from, const Datagram& datagram) {
    constexpr std::uint8_t kPortUnreachable = 3;
    constexpr std::size_t kQuotedBytes = kIpHeaderBytes + 8;
    if (datagram.from.ip.IsV6()) {
        return PortUnreachable6Frame(from, datagram);
    }
    const auto searcher = ToTins(datagram.from.ip.V4());
    const auto host = ToTins(datagram.to.ip.V4());
    auto refused = Tins::IP(host, searcher) / Tins::UDP(datagram.to.port, datagram.from.port) /
                   Tins::RawPDU(datagram.payload);
    Tins::ICMP icmp(Tins::ICMP::DEST_UNREACHABLE);
    icmp.code(kPortUnreachable);
    auto frame = Tins::EthernetII(ToTins(datagram.fromMac), ToTins(from)) /
                 Tins::IP(searcher, host) / icmp /
                 Tins::RawPDU(Bytes(refused).substr(0, kQuotedBytes));
    return Bytes(frame);
}

std::string ArpReplyFrame(const Host& from, const Host& to) {
    auto frame =
        Tins::ARP::make_arp_reply(ToTins(to.ip), ToTins(from.ip), ToTins(to.mac), ToTins(from.mac));
    return Bytes(frame);
}

std::string ArpRequestFrame(const Host& from, Ipv4 target) {
    auto frame = Tins::ARP::make_arp_request(ToTins(target), ToTins(from.ip), ToTins(from.mac));
    return Bytes(frame);
}

std::optional<IpEnds> EndsOf(std::string_view packet) try {
    const Tins::IP ip(reinterpret_cast<const std::uint8_t*>(packet.data()),
                      static_cast<std::uint32_t>(packet.size()));
    return IpEnds{FromTins(ip.src_addr()), FromTins(ip.dst_addr())};
} catch (const Tins::exception_base&) {
    return std::nullopt;
}

std::string IpFrame(const Mac& from, const Mac& to, std::string_view packet) {
    std::string frame(to.begin(), to.end());
    frame.append(from.begin(), from.end());
    frame += {'\x08', '\x00'};  // EtherType IPv4
    frame += packet;
    return frame;
}

std::string EchoReplyFrame(const Mac& from, const EchoRequest& request) {
    if (request.from.IsV6()) {
        return EchoReply6Frame({request.to.V6(), from}, request);
    }
    Tins::ICMP icmp(Tins::ICMP::ECHO_REPLY);
    icmp.id(request.id);
    icmp.sequence(request.sequence);
    auto frame = Tins::EthernetII(ToTins(request.fromMac), ToTins(from)) /
                 Tins::IP(ToTins(request.from.V4()), ToTins(request.to.V4())) / icmp /
                 Tins::RawPDU(request.payload);
    return Bytes(frame);
}

std::vector<std::string> UdpFrames(const Mac& from, const Mac& to, const Datagram& datagram,
                                   std::uint16_t ipId, std::size_t mtu) {
    if (datagram.from.ip.IsV6()) {
        return Udp6Frames(from, to, datagram, ipId, mtu);
    }
    const auto toIp = ToTins(datagram.to.ip.V4());
    const auto fromIp = ToTins(datagram.from.ip.V4());
    auto ip = Tins::IP(toIp, fromIp) / Tins::UDP(datagram.to.port, datagram.from.port) /
              Tins::RawPDU(datagram.payload);
    ip.id(ipId);
    ip.ttl(TtlOf(datagram.to));
    const std::string packet = Bytes(ip);
    if (packet.size() <= mtu) {
        return {IpFrame(from, to, packet)};
    }

    const std::string content = packet.substr(kIpHeaderBytes);
    const auto step = (mtu - kIpHeaderBytes) / kFragmentUnitBytes * kFragmentUnitBytes;
    std::vector<std::string> frames;
    for (std::size_t at = 0; at < content.size(); at += step) {
        Tins::IP part(toIp, fromIp);
        part.id(ipId);
        part.ttl(TtlOf(datagram.to));
        part.protocol(IPPROTO_UDP);
        part.fragment_offset(static_cast<std::uint16_t>(at / kFragmentUnitBytes));
        if (at + step < content.size()) {
            part.flags(Tins::IP::MORE_FRAGMENTS);
        }
        auto fragment = part / Tins::RawPDU(content.substr(at, step));
        frames.push_back(IpFrame(from, to, Bytes(fragment)));
    }
    return frames;
}

}  // namespace lansim
