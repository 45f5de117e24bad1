// The local IPv4 interfaces and the choice of those that are searched.
#pragma once

#include <string>
#include <vector>

#include "finder/device/device.h"
#include "finder/machine/problem.h"

namespace Lanscout {

struct LocalAddress {
    std::string interface;
    std::string address;
    std::string network;  // "192.168.1.0/24"
    bool up = false;
    bool loopback = false;
    bool multicast = false;
};

// Every IPv4 address of this machine, and interfaces without one (their address is empty).
std::vector<LocalAddress> ReadLocalAddresses();

struct Choice {
    std::vector<Target> targets;
    std::vector<Problem> problems;
};

// What is searched: the named interfaces and addresses, or without any every usable one (up, able
// to multicast, not the loopback).
Choice ChooseTargets(const std::vector<LocalAddress>& local,
                     const std::vector<std::string>& interfaces,
                     const std::vector<std::string>& addresses);

}  // namespace Lanscout
