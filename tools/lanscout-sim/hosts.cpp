#include "tools/lanscout-sim/hosts.h"

#include <map>

#include "tools/lanscout-sim/network/network.h"

namespace lansim {

namespace {

SimulatedHost HostOf(const Camera& camera, const IpAddress& ip) {
    const bool answersArp = !camera.Does(Misbehaviour::NoArp);
    const bool asksArp = answersArp && !camera.Does(Misbehaviour::QuietArp);
    SimulatedHost host{ip, camera.mac, answersArp, asksArp, {kDiscoveryPort}, {}};
    if (!ip.IsV6()) {
        host.tcpPorts.Add(camera.port);  // its device service
    }
    return host;
}

}  // namespace

std::vector<SimulatedHost> HostsOf(const Population& population, Attendance attendance) {
    std::map<std::pair<IpAddress, Mac>, SimulatedHost> hosts;
    for (const auto& camera : population.cameras) {
        if (!camera.isPresent && attendance == Attendance::Present) {
            continue;
        }
        if (camera.hasIpv4) {
            hosts[{camera.ip, camera.mac}] = HostOf(camera, camera.ip);
        }
        if (camera.ipv6) {
            hosts[{*camera.ipv6, camera.mac}] = HostOf(camera, *camera.ipv6);
        }
    }
    for (const auto& device : population.upnpDevices) {
        if (!device.isPresent && attendance == Attendance::Present) {
            continue;
        }
        SimulatedHost& host = hosts[{device.ip, device.mac}];
        host.ip = device.ip;
        host.mac = device.mac;
        host.udpPorts.Add(kSsdpPort);
        host.tcpPorts.Add(device.port);
    }
    std::vector<SimulatedHost> list;
    list.reserve(hosts.size());
    for (auto& [key, host] : hosts) {
        list.push_back(std::move(host));
    }
    return list;
}

}  // namespace lansim
