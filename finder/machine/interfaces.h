// The local interfaces, the choice of those that are searched, and what is in their subnets.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "finder/device/device.h"
#include "finder/machine/problem.h"

namespace Lanscout {

struct Ipv6Address {
    std::string address;  // without a zone
    int prefixBits = 0;
    bool linkLocal = false;

    bool operator==(const Ipv6Address&) const = default;
};

struct LocalAddress {
    std::string interface;
    std::string address;
    std::string network;  // "192.168.1.0/24"
    bool up = false;
    bool loopback = false;
    bool multicast = false;
    int prefixBits = 0;               // of the address
    bool bridged = false;             // this is a container, and this its engine's bridge
    std::vector<Ipv6Address> ipv6{};  // all of the interface, whatever its IPv4 address
};

// Every IPv4 address of this machine, and interfaces without one (their address is empty).
std::vector<LocalAddress> ReadLocalAddresses();

struct Choice {
    std::vector<Target> targets;
    std::vector<Problem> problems;
};

// What is searched: the named interfaces and addresses, or without any every usable one (up, able
// to multicast, not the loopback, no bridge of a container engine). An address that stands on
// several interfaces is searched once.
Choice ChooseTargets(const std::vector<LocalAddress>& local,
                     const std::vector<std::string>& interfaces,
                     const std::vector<std::string>& addresses);

// An alias ("eth0:1") is its interface.
bool IsSameInterface(const std::string& a, const std::string& b);

// Whether the IPv4 or IPv6 address (with or without a zone) is in a subnet of that interface.
bool IsInSubnetOf(const std::vector<LocalAddress>& local, const std::string& interface,
                  const std::string& address);

// The target of that interface that has the address in its subnet, or else the interface's first;
// without any the interface alone.
Target TargetTowards(const std::vector<Target>& targets, const std::vector<LocalAddress>& local,
                     const std::string& interface, const std::string& address);

// An IPv6 address of one link, which means nothing elsewhere, with the link's name:
// "fe80::1%eth0"; any other address as it is.
std::string WithZone(const std::string& address, const std::string& interface);

// The subnet that an IPv4 address of a foreign one is likely in: "192.168.77.0/24".
std::string LikelySubnet(const std::string& address);

// What gives this machine an address in that subnet: "ip address add 192.168.77.2/24 dev eth0",
// with the first address that `taken` does not know. Empty when all are taken.
std::string CommandToReach(const std::string& address, const std::string& interface,
                           const std::function<bool(const std::string& address)>& taken);

}  // namespace Lanscout
