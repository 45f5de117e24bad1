// Addresses as the frames' library has them, and back; for those who write and read frames.
#pragma once

#include <netinet/in.h>
#include <tins/hw_address.h>
#include <tins/ip_address.h>
#include <tins/ipv6_address.h>
#include <tins/pdu.h>

#include <algorithm>
#include <string>

#include "tools/lanscout-sim/network/address.h"

namespace lansim {

inline Tins::IPv4Address ToTins(Ipv4 ip) {
    return Tins::IPv4Address(htonl(ip.value));
}

inline Ipv4 FromTins(const Tins::IPv4Address& ip) {
    return Ipv4{ntohl(static_cast<std::uint32_t>(ip))};
}

inline Tins::IPv6Address ToTins(const Ipv6& ip) {
    return Tins::IPv6Address(ip.bytes.data());
}

inline Ipv6 FromTins(const Tins::IPv6Address& address) {
    Ipv6 ip;
    std::copy(address.begin(), address.end(), ip.bytes.begin());
    return ip;
}

inline Tins::HWAddress<6> ToTins(const Mac& mac) {
    return Tins::HWAddress<6>(mac.data());
}

inline Mac FromTins(const Tins::HWAddress<6>& address) {
    Mac mac{};
    std::copy(address.begin(), address.end(), mac.begin());
    return mac;
}

inline std::string Bytes(Tins::PDU& pdu) {
    const auto bytes = pdu.serialize();
    return {bytes.begin(), bytes.end()};
}

}  // namespace lansim
