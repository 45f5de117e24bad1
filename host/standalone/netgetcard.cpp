#include <net/if.h>
#include <netpacket/packet.h>

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

// The index is not among what getifaddrs tells of a device without a link layer address.
std::int32_t IndexOf(const ifaddrs& device, const char* name) {
    if (device.ifa_addr == nullptr) {
        return static_cast<std::int32_t>(if_nametoindex(name));
    }
    sockaddr_ll link{};
    std::memcpy(&link, device.ifa_addr, sizeof link);
    return link.sll_ifindex;
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
    // IFF_UP and not IFF_RUNNING: a cable may be plugged in again later, and callers ask only once.
    // They want the name, which is right either way.
    found.bUsable = (entry->ifa_flags & IFF_UP) != 0 ? 1 : 0;
    name.copy(found.szName, sizeof found.szName - 1);
    found.nIndex = IndexOf(*device, found.szName);
    info = found;
    return 1;
}
