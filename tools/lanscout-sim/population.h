// All devices of a run, named and generated.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "tools/lanscout-sim/base/setuperror.h"
#include "tools/lanscout-sim/onvif/camera.h"
#include "tools/lanscout-sim/upnp/upnpdevice.h"

namespace lansim {

// Whether generated cameras have IPv6 addresses beside, or instead of, their IPv4 ones.
enum class Ipv6Use { None, Also, Only };

struct PopulationRequest {
    Subnet network;                // the searcher's address and the network all devices stand in
    std::uint32_t firstHost = 10;  // the first generated camera's number in the network
    std::size_t generated = 0;
    std::size_t generatedUpnp = 0;
    std::size_t generatedForeign = 0;  // of the generated cameras, those of another subnet
    Ipv6Use ipv6 = Ipv6Use::None;
    std::uint64_t seed = 1;
    std::deque<Camera> named;               // from a scenario; what they leave open is filled in
    std::deque<UpnpDevice> namedUpnp;       // likewise
    std::vector<unsigned> shapes;           // that generated cameras have; none: all
    std::vector<MisbehaviourShare> shares;  // of the generated cameras and UPnP devices
};

// Neither is ever moved: others keep pointers to what stands in them. Who leaves stays, and is not
// present.
struct Population {
    std::deque<Camera> cameras;
    std::deque<UpnpDevice> upnpDevices;
};

// All devices of a run: the named ones first, then the generated. Every other generated UPnP
// device is a camera's other side, at its address, while there are cameras that behave. The same
// request makes the same devices. Named cameras may share an address when each says its MAC
// address. Throws SetupError when an address is taken twice otherwise, or the network is too small.
Population MakePopulation(const PopulationRequest& request);

// What a device that comes later leaves open: a free address, and what belongs to that. Throws
// SetupError when the network is full.
void CompleteAdded(Camera& camera, const Population& population, const Subnet& network);
void CompleteAdded(UpnpDevice& device, const Population& population, const Subnet& network);

}  // namespace lansim
