#include "finder/foreignsubnets.h"

#include <fmt/core.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <tuple>

#include "finder/machine/interfaces.h"

namespace Lanscout {
namespace {

constexpr std::size_t kMostSubnets = 16;  // somebody may be flooding the network

struct Subnet {
    Target via;
    std::string first;  // of its devices
    std::size_t count = 0;
};

using Subnets = std::map<std::tuple<std::string, std::string>, Subnet>;  // by interface and network

Subnets SubnetsOf(std::span<const Device> devices) {
    Subnets subnets;
    for (const Device& device : devices) {
        const std::string network = LikelySubnet(device.ip);
        if (device.reach != Reach::Foreign || network.empty() || device.seenVia.empty()) {
            continue;
        }
        const Target& via = device.seenVia.front();
        if (subnets.size() >= kMostSubnets && !subnets.contains({via.interface, network})) {
            continue;
        }
        Subnet& subnet = subnets[{via.interface, network}];
        if (subnet.count++ == 0 || device.ip < subnet.first) {
            subnet.first = device.ip;
        }
        subnet.via = via;
    }
    return subnets;
}

}  // namespace

std::vector<Problem> ForeignSubnets(std::span<const Device> devices) {
    const Subnets subnets = SubnetsOf(devices);
    std::set<std::string> taken;
    for (const Device& device : devices) {
        taken.insert(device.ip);
        taken.insert(device.otherIps.begin(), device.otherIps.end());
    }
    std::vector<Problem> problems;
    for (const auto& [key, subnet] : subnets) {
        const auto& [interface, network] = key;
        const std::string command =
            CommandToReach(subnet.first, interface,
                           [&](const std::string& address) { return taken.contains(address); });
        problems.push_back(
            {Problem::Weight::Notice, subnet.via, "",
             subnet.count == 1
                 ? fmt::format("{} has an address of another subnet, {}", subnet.first, network)
                 : fmt::format("{} devices have addresses of another subnet, {}", subnet.count,
                               network),
             command.empty() ? "" : "To reach it: " + command});
    }
    return problems;
}

}  // namespace Lanscout
