#include "finder/machine/neighbourtable.h"

#include <arpa/inet.h>
#include <fmt/core.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <system_error>

namespace Lanscout {
namespace {

using Mac = std::array<unsigned char, 6>;

constexpr int kUsable = NUD_REACHABLE | NUD_STALE | NUD_DELAY | NUD_PROBE | NUD_PERMANENT;
constexpr std::size_t kRequestBytes = 256;
constexpr int kMostDatagramsAtOnce = 1024;  // of a table that does not stop changing

using RequestBuffer = std::array<char, kRequestBytes>;

ndmsg* PutHeader(RequestBuffer& buffer, nlmsghdr*& request, unsigned int flags) {
    request = mnl_nlmsg_put_header(buffer.data());
    request->nlmsg_type = RTM_GETNEIGH;
    request->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
    return static_cast<ndmsg*>(mnl_nlmsg_put_extra_header(request, sizeof(ndmsg)));
}

std::string AddressText(int family, std::span<const unsigned char> bytes) {
    const std::size_t expected = family == AF_INET ? sizeof(in_addr) : sizeof(in6_addr);
    std::array<char, INET6_ADDRSTRLEN> text{};
    if ((family != AF_INET && family != AF_INET6) || bytes.size() != expected) {
        return {};
    }
    inet_ntop(family, bytes.data(), text.data(), text.size());
    return text.data();
}

// Empty for what is no Ethernet address of one machine.
std::string MacText(std::span<const unsigned char> bytes) {
    constexpr unsigned char kGroupBit = 1;  // broadcast too
    const bool none = std::all_of(bytes.begin(), bytes.end(), [](auto byte) { return byte == 0; });
    if (bytes.size() != sizeof(Mac) || none || (bytes[0] & kGroupBit) != 0) {
        return {};
    }
    return fmt::format("{:02X}:{:02X}:{:02X}:{:02X}:{:02X}:{:02X}", bytes[0], bytes[1], bytes[2],
                       bytes[3], bytes[4], bytes[5]);
}

std::optional<Neighbour> ReadNeighbour(const nlmsghdr& message) {
    if (message.nlmsg_type != RTM_NEWNEIGH || mnl_nlmsg_get_payload_len(&message) < sizeof(ndmsg)) {
        return std::nullopt;
    }
    const auto* const entry = static_cast<const ndmsg*>(mnl_nlmsg_get_payload(&message));
    if ((entry->ndm_state & kUsable) == 0 || entry->ndm_ifindex <= 0) {
        return std::nullopt;
    }
    Neighbour neighbour{static_cast<unsigned int>(entry->ndm_ifindex), "", ""};
    ForEachAttribute(message, sizeof(ndmsg), [&](int type, std::span<const unsigned char> bytes) {
        if (type == NDA_DST) {
            neighbour.address = AddressText(entry->ndm_family, bytes);
        } else if (type == NDA_LLADDR) {
            neighbour.mac = MacText(bytes);
        }
    });
    const bool whole = !neighbour.address.empty() && !neighbour.mac.empty();
    return whole ? std::optional(neighbour) : std::nullopt;
}

}  // namespace

NeighbourTable::NeighbourTable() : m_netlink(NETLINK_ROUTE, RTMGRP_NEIGH) {
    Ask();
}

void NeighbourTable::Ask() {
    alignas(nlmsghdr) RequestBuffer buffer{};
    nlmsghdr* request = nullptr;
    PutHeader(buffer, request, NLM_F_DUMP)->ndm_family = AF_UNSPEC;
    m_netlink.Send(*request);
    m_asking = true;
    m_again = false;
}

void NeighbourTable::Read(const Take& take) {
    for (int i = 0; i < kMostDatagramsAtOnce; ++i) {
        const Netlink::Got got = m_netlink.Receive([&](const nlmsghdr& message) {
            if (const auto neighbour = ReadNeighbour(message)) {
                take(*neighbour);
            }
        });
        if (got == Netlink::Got::Nothing) {
            return;
        }
        if (got == Netlink::Got::End || got == Netlink::Got::Interrupted) {
            m_asking = false;
        }
        if (got == Netlink::Got::Lost || got == Netlink::Got::Interrupted) {
            m_again = true;
        }
        // One answer at a time: the kernel refuses a second request meanwhile.
        if (m_again && !m_asking) {
            Ask();
        }
    }
}

std::string MacOfNeighbour(const std::string& address, const std::string& interface) {
    in6_addr binary{};
    const int family = address.find(':') == std::string::npos ? AF_INET : AF_INET6;
    const unsigned int index = if_nametoindex(interface.c_str());
    if (index == 0 || inet_pton(family, address.c_str(), &binary) != 1) {
        return {};
    }
    alignas(nlmsghdr) RequestBuffer buffer{};
    nlmsghdr* request = nullptr;
    ndmsg* const entry = PutHeader(buffer, request, 0);
    entry->ndm_family = static_cast<unsigned char>(family);
    entry->ndm_ifindex = static_cast<int>(index);
    mnl_attr_put(request, NDA_DST, family == AF_INET ? sizeof(in_addr) : sizeof(in6_addr), &binary);
    std::string mac;
    try {
        Netlink(NETLINK_ROUTE).Ask(*request, [&](const nlmsghdr& message) {
            if (const auto neighbour = ReadNeighbour(message)) {
                mac = neighbour->mac;
            }
        });
    } catch (const std::system_error&) {
        return {};  // mostly that the kernel knows no such neighbour
    }
    return mac;
}

}  // namespace Lanscout
