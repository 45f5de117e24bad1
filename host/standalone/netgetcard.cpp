#include <net/if.h>
#include <net/if_arp.h>
#include <netpacket/packet.h>

#include <arpa/inet.h>

#include <cstdio>
#include <cstring>
#include <string_view>

#include "host/standalone/ipv4.h"
#include "host/standalone/seam.h"

namespace {

// The entry that carries the address; one that is up goes before one that is down.
const ifaddrs* FindAddress(const ifaddrs* list, in_addr wanted) {
    const ifaddrs* found = nullptr;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        const auto address = Ipv4Of(entry->ifa_addr);
        if (!address || address->s_addr != wanted.s_addr) {
            continue;
        }
        if ((entry->ifa_flags & IFF_UP) != 0) {
            return entry;
        }
        found = found == nullptr ? entry : found;
    }
    return found;
}

// The device behind an entry. An address may bear a label ("eth0:1") in place of the device's name,
// but the kernel's ARP cache knows devices only. No device name has a colon in it.
std::string_view DeviceName(const ifaddrs& entry) {
    const std::string_view label(entry.ifa_name);
    return label.substr(0, label.find(':'));
}

// The entry of a device itself. Its address is of the link layer, or null where it has none.
const ifaddrs* FindDevice(const ifaddrs* list, std::string_view name) {
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        const bool isDevice = entry->ifa_addr == nullptr || entry->ifa_addr->sa_family == AF_PACKET;
        if (isDevice && name == entry->ifa_name) {
            return entry;
        }
    }
    return nullptr;
}

template <std::size_t Size>
void WriteAddress(const sockaddr* address, char (&text)[Size]) {
    if (const auto ipv4 = Ipv4Of(address)) {
        inet_ntop(AF_INET, &*ipv4, text, Size);
    }
}

// The field is shared with the peer of a point-to-point link, and glibc puts the address itself
// into it where an address was given none.
bool HasBroadcast(const ifaddrs& entry, in_addr own) {
    const auto broadcast = Ipv4Of(entry.ifa_broadaddr);
    return (entry.ifa_flags & IFF_BROADCAST) != 0 && broadcast && broadcast->s_addr != own.s_addr;
}

void WriteLinkLayer(const sockaddr* address, _tag_NETINFO_& info) {
    if (address == nullptr) {
        info.nIndex = static_cast<std::int32_t>(if_nametoindex(info.szName));
        return;
    }
    sockaddr_ll link{};
    std::memcpy(&link, address, sizeof link);
    info.nIndex = link.sll_ifindex;
    const unsigned char* mac = link.sll_addr;
    if (link.sll_halen == 6 && link.sll_hatype != ARPHRD_LOOPBACK) {
        std::snprintf(info.szMac, sizeof info.szMac, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0],
                      mac[1], mac[2], mac[3], mac[4], mac[5]);
    }
}

}  // namespace

int SDKFuncData::NetGetCard1(const std::string& strIp, _tag_NETINFO_& info) {
    const auto wanted = ParseIpv4(strIp);
    const IfAddrsList list = wanted ? ReadIfAddrs() : nullptr;
    const ifaddrs* entry = list ? FindAddress(list.get(), *wanted) : nullptr;
    const std::string_view name = entry == nullptr ? std::string_view() : DeviceName(*entry);
    const ifaddrs* device = FindDevice(list.get(), name);
    // A cut name would be that of another device.
    if (device == nullptr || name.empty() || name.size() >= sizeof info.szName) {
        return 0;
    }
    _tag_NETINFO_ found{};
    // Up, not running: an unplugged cable may be plugged in again, and the name, which is what the
    // callers want and ask for but once, is right all the same.
    found.bUsable = (entry->ifa_flags & IFF_UP) != 0 ? 1 : 0;
    name.copy(found.szName, sizeof found.szName - 1);
    WriteAddress(entry->ifa_addr, found.szIp);
    WriteAddress(entry->ifa_netmask, found.szNetmask);
    if (HasBroadcast(*entry, *wanted)) {
        WriteAddress(entry->ifa_broadaddr, found.szBroadcast);
    }
    WriteLinkLayer(device->ifa_addr, found);
    info = found;
    return 1;
}
