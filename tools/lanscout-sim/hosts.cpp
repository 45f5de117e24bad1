#include "tools/lanscout-sim/hosts.h"

#include <map>

#include "tools/lanscout-sim/network/network.h"

namespace lansim {

std::vector<SimulatedHost> HostsOf(const Population& population) {
    std::map<std::pair<Ipv4, Mac>, SimulatedHost> hosts;
    for (const auto& camera : population.cameras) {
        const bool answersArp = !camera.Does(Misbehaviour::NoArp);
        hosts[{camera.ip, camera.mac}] = {camera.ip,
                                          camera.mac,
                                          answersArp,
                                          answersArp && !camera.Does(Misbehaviour::QuietArp),
                                          {kDiscoveryPort}};
    }
    for (const auto& device : population.upnpDevices) {
        SimulatedHost& host = hosts[{device.ip, device.mac}];
        host.ip = device.ip;
        host.mac = device.mac;
        host.udpPorts.insert(kSsdpPort);
    }
    std::vector<SimulatedHost> list;
    list.reserve(hosts.size());
    for (auto& [key, host] : hosts) {
        list.push_back(host);
    }
    return list;
}

}  // namespace lansim
