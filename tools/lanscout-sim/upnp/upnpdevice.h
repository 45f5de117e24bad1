// One simulated UPnP root device.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "tools/lanscout-sim/base/misbehaviour.h"
#include "tools/lanscout-sim/network/address.h"

namespace lansim {

// One simulated UPnP root device. It may stand at a camera's address: then both are one machine.
struct UpnpDevice {
    std::string name;
    std::string maker;
    std::string model;
    std::string kind = "Basic";  // urn:schemas-upnp-org:device:KIND:1, or a whole urn:...
    std::string uuid;
    Ipv4 ip;
    Mac mac{};
    std::uint16_t port = 0;
    std::set<Misbehaviour> misbehaviours;
    bool isPresent = true;  // else it is not there yet, or any more
    bool isMuted = false;   // is there and answers nothing

    unsigned starts = 1;  // how often it has joined
    unsigned flood = 0;   // how many LOCATIONs a flood has had
    std::uint64_t searchesSeen = 0;
    std::uint64_t answersSent = 0;
    std::uint64_t advertisementsSent = 0;
    std::uint64_t descriptionsServed = 0;

    bool Does(Misbehaviour misbehaviour) const { return misbehaviours.contains(misbehaviour); }
};

// Its device type, as it stands in ST, NT and the description.
std::string TypeOf(const UpnpDevice& device);

// Where its description is, as it says in LOCATION. `number` makes one of a flood differ.
std::string LocationOf(const UpnpDevice& device, unsigned number = 0);

// Its description document (UPnP Device Architecture 1.0, 2.1), misbehaviours included.
std::string DescriptionOf(const UpnpDevice& device);

}  // namespace lansim
