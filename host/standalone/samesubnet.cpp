#include "host/standalone/ipv4.h"
#include "host/standalone/seam.h"

// The subnet is that of the local interface which holds one of the two addresses. Where none of
// them is local there is no netmask to go by, and the answer is no.
bool IsSameSubnet(const std::string& a, const std::string& b) {
    const auto first = ParseIpv4(a);
    const auto second = ParseIpv4(b);
    if (!first || !second) {
        return false;
    }
    const IfAddrsList list = ReadIfAddrs();
    for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
        const auto local = Ipv4Of(entry->ifa_addr);
        const auto mask = Ipv4Of(entry->ifa_netmask);
        if (!local || !mask ||
            (local->s_addr != first->s_addr && local->s_addr != second->s_addr)) {
            continue;
        }
        if (((first->s_addr ^ second->s_addr) & mask->s_addr) == 0) {
            return true;
        }
    }
    return false;
}
