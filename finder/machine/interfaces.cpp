#include "finder/machine/interfaces.h"

#include <arpa/inet.h>
#include <fmt/core.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <algorithm>
#include <bit>
#include <memory>

namespace Lanscout {
namespace {

std::string Dotted(in_addr address) {
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address, static_cast<char*>(text), sizeof text);
    return static_cast<char*>(text);
}

in_addr AddressOf(const sockaddr* address) {
    return reinterpret_cast<const sockaddr_in*>(address)->sin_addr;
}

std::string NetworkText(const ifaddrs& entry) {
    if (entry.ifa_netmask == nullptr) {
        return {};
    }
    const in_addr mask = AddressOf(entry.ifa_netmask);
    const in_addr network{AddressOf(entry.ifa_addr).s_addr & mask.s_addr};
    return fmt::format("{}/{}", Dotted(network), std::popcount(mask.s_addr));
}

bool IsUsable(const LocalAddress& local) {
    return !local.address.empty() && local.up && local.multicast && !local.loopback;
}

// The addresses of 127.0.0.0/8 are all local, whether or not an interface lists them.
bool IsLoopbackText(const std::string& address) {
    in_addr binary{};
    return inet_pton(AF_INET, address.c_str(), &binary) == 1 && ntohl(binary.s_addr) >> 24 == 127;
}

void Add(Choice& choice, const Target& target) {
    if (std::find(choice.targets.begin(), choice.targets.end(), target) == choice.targets.end()) {
        choice.targets.push_back(target);
    }
}

void Refuse(Choice& choice, Target target, std::string what, std::string remedy = {}) {
    choice.problems.push_back(
        {Problem::Weight::Error, std::move(target), "", std::move(what), std::move(remedy)});
}

std::string NamesOf(const std::vector<LocalAddress>& local) {
    std::string names;
    for (const LocalAddress& one : local) {
        if (names.find(one.interface) == std::string::npos) {
            names += (names.empty() ? "" : ", ") + one.interface;
        }
    }
    return names;
}

void ChooseInterface(Choice& choice, const std::vector<LocalAddress>& local,
                     const std::string& name) {
    bool known = false;
    bool added = false;
    for (const LocalAddress& one : local) {
        if (one.interface != name) {
            continue;
        }
        known = true;
        if (!one.up) {
            return Refuse(choice, {name, one.address}, "the interface is down",
                          fmt::format("Bring it up with: ip link set dev {} up", name));
        }
        if (!one.address.empty()) {
            Add(choice, {name, one.address});
            added = true;
        }
    }
    if (!known) {
        Refuse(choice, {name, ""}, "no such interface", "This machine has: " + NamesOf(local));
    } else if (!added) {
        Refuse(
            choice, {name, ""}, "the interface has no IPv4 address",
            fmt::format("Give it one, for example with: ip address add ADDRESS/24 dev {}", name));
    }
}

void ChooseAddress(Choice& choice, const std::vector<LocalAddress>& local,
                   const std::string& address) {
    const auto found = std::find_if(local.begin(), local.end(), [&](const LocalAddress& one) {
        return one.address == address;
    });
    if (found != local.end()) {
        if (!found->up) {
            return Refuse(choice, {found->interface, address}, "the interface is down",
                          fmt::format("Bring it up with: ip link set dev {} up", found->interface));
        }
        return Add(choice, {found->interface, address});
    }
    if (IsLoopbackText(address)) {
        return Add(choice, {"lo", address});
    }
    Refuse(choice, {"", address}, "no interface of this machine has that address",
           "ip -4 address lists those that there are");
}

void ChooseUsable(Choice& choice, const std::vector<LocalAddress>& local) {
    for (const LocalAddress& one : local) {
        if (IsUsable(one)) {
            Add(choice, {one.interface, one.address});
        }
    }
    if (choice.targets.empty()) {
        Refuse(choice, {}, "no usable interface: none is up, has an IPv4 address and can multicast",
               "ip -4 address shows what there is; --address names one to search in any case");
    }
}

}  // namespace

std::vector<LocalAddress> ReadLocalAddresses() {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return {};
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
    std::vector<LocalAddress> local;
    std::vector<LocalAddress> bare;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        LocalAddress one;
        one.interface = entry->ifa_name;
        one.up = (entry->ifa_flags & IFF_UP) != 0;
        one.loopback = (entry->ifa_flags & IFF_LOOPBACK) != 0;
        one.multicast = (entry->ifa_flags & IFF_MULTICAST) != 0;
        if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET) {
            one.address = Dotted(AddressOf(entry->ifa_addr));
            one.network = NetworkText(*entry);
            local.push_back(one);
        } else {
            bare.push_back(one);
        }
    }
    for (const LocalAddress& one : bare) {
        const bool listed = std::any_of(local.begin(), local.end(), [&](const LocalAddress& other) {
            return other.interface == one.interface;
        });
        if (!listed) {
            local.push_back(one);
        }
    }
    return local;
}

Choice ChooseTargets(const std::vector<LocalAddress>& local,
                     const std::vector<std::string>& interfaces,
                     const std::vector<std::string>& addresses) {
    Choice choice;
    for (const std::string& name : interfaces) {
        ChooseInterface(choice, local, name);
    }
    for (const std::string& address : addresses) {
        ChooseAddress(choice, local, address);
    }
    if (interfaces.empty() && addresses.empty()) {
        ChooseUsable(choice, local);
    }
    return choice;
}

}  // namespace Lanscout
