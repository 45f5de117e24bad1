// The IPv6 part of the frames: neighbour discovery (RFC 4861), echo, UDP.
#pragma once

#include "tools/lanscout-sim/network/frames.h"

namespace lansim {

struct Host6 {
    Ipv6 ip;
    Mac mac{};
};

Heard ReadIpv6Frame(std::string_view frame);

// Who has the address: asked of all hosts whose address ends alike (RFC 4291, 2.7.1).
std::string NeighbourSolicitFrame(const Host6& from, const Ipv6& target);
std::string NeighbourAdvertFrame(const Host6& from, const NeighbourSolicit& question);
std::string EchoReply6Frame(const Host6& from, const EchoRequest& request);
std::string PortUnreachable6Frame(const Mac& from, const Datagram& datagram);
std::vector<std::string> Udp6Frames(const Mac& from, const Mac& to, const Datagram& datagram,
                                    std::uint32_t packetId, std::size_t mtu);

}  // namespace lansim
