#include "finder/machine/interfaces.h"

#include <fmt/core.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "finder/text/addresstext.h"

namespace Lanscout {
namespace {

struct NameRule {
    std::string_view begin;
    bool whole;
};

// How container engines and virtual machines name their bridges and cables.
constexpr std::array kEngineNames{NameRule{"docker0", true}, NameRule{"br-", false},
                                  NameRule{"veth", false},   NameRule{"virbr", false},
                                  NameRule{"cni", false},    NameRule{"podman", false}};

bool IsEngineBridge(const std::string& name) {
    return std::any_of(kEngineNames.begin(), kEngineNames.end(), [&](const NameRule& rule) {
        return rule.whole ? name == rule.begin : name.starts_with(rule.begin);
    });
}

bool IsUsable(const LocalAddress& local) {
    return !local.address.empty() && local.up && local.multicast && !local.loopback;
}

// The addresses of 127.0.0.0/8 are all local, whether or not an interface lists them.
bool IsLoopbackText(const std::string& address) {
    const auto value = Ipv4Value(address);
    return value && *value >> 24 == 127;
}

void Notice(Choice& choice, Target target, std::string what, std::string remedy) {
    choice.problems.push_back(
        {Problem::Weight::Notice, std::move(target), "", std::move(what), std::move(remedy)});
}

void Refuse(Choice& choice, Target target, std::string what, std::string remedy = {}) {
    choice.problems.push_back(
        {Problem::Weight::Error, std::move(target), "", std::move(what), std::move(remedy)});
}

// Two searches of one address would take its port from each other.
void Add(Choice& choice, const Target& target) {
    const auto same =
        std::find_if(choice.targets.begin(), choice.targets.end(),
                     [&](const Target& one) { return one.address == target.address; });
    if (same == choice.targets.end()) {
        choice.targets.push_back(target);
    } else if (same->interface != target.interface) {
        Notice(choice, target,
               fmt::format("{} has the same address; it is searched once, through {}",
                           same->interface, same->interface),
               "Give one of them another address");
    }
}

std::string NamesOf(const std::vector<LocalAddress>& local) {
    std::vector<std::string> names;
    for (const LocalAddress& one : local) {
        if (std::find(names.begin(), names.end(), one.interface) == names.end()) {
            names.push_back(one.interface);
        }
    }
    return fmt::format("{}", fmt::join(names, ", "));
}

void RefuseDown(Choice& choice, const LocalAddress& local) {
    Refuse(choice, {local.interface, local.address}, "the interface is down",
           fmt::format("Bring it up with: ip link set dev {} up", local.interface));
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
            return RefuseDown(choice, one);
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
        return found->up ? Add(choice, {found->interface, address}) : RefuseDown(choice, *found);
    }
    if (IsLoopbackText(address)) {
        return Add(choice, {"lo", address});
    }
    Refuse(choice, {"", address}, "no interface of this machine has that address",
           "ip -4 address lists those that there are");
}

void TellLeftOut(Choice& choice, const std::vector<LocalAddress>& bridges) {
    if (!bridges.empty()) {
        Notice(choice, {},
               fmt::format("bridges of container engines and virtual machines are left out: {}",
                           NamesOf(bridges)),
               fmt::format("To search one, name it, as with: --interface {}",
                           bridges.front().interface));
    }
}

void TellBridged(Choice& choice) {
    Notice(choice, {},
           "this container is connected by its engine's bridge alone, which multicast does not "
           "pass, so the devices of the network outside are not found",
           "Run it on the host's network (with Docker or Podman: --network host), or name the "
           "addresses to ask, as with: --to 192.168.1.0/24");
}

void ChooseUsable(Choice& choice, const std::vector<LocalAddress>& local) {
    std::vector<LocalAddress> bridges;
    bool onlyBridged = true;
    for (const LocalAddress& one : local) {
        if (!IsUsable(one)) {
            continue;
        }
        if (IsEngineBridge(one.interface)) {
            bridges.push_back(one);
            continue;
        }
        Add(choice, {one.interface, one.address});
        onlyBridged = onlyBridged && one.bridged;
    }
    TellLeftOut(choice, bridges);
    if (choice.targets.empty()) {
        Refuse(choice, {}, "no usable interface: none is up, has an IPv4 address and can multicast",
               "ip -4 address shows what there is; --address names one to search in any case");
    } else if (onlyBridged) {
        TellBridged(choice);
    }
}

}  // namespace

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
