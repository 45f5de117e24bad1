// One simulated ONVIF device.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "tools/lanscout-sim/base/misbehaviour.h"
#include "tools/lanscout-sim/network/address.h"

namespace lansim {

// One simulated ONVIF device: what it says of itself, how it misbehaves, and what became of it.
struct Camera {
    std::string name;
    std::string maker;
    std::string hardware;
    std::string location;
    std::string uuid;
    Ipv4 ip;
    Mac mac{};
    std::uint16_t port = 80;
    bool isForeign = false;  // stands in another subnet than the searcher, on the same wire
    bool isVideoTransmitter = true;
    bool isDevice = true;
    // Which maker's way of writing a reply it uses (reply.cpp).
    unsigned shape = 0;
    // Given in full by a scenario; empty means made from the fields above.
    std::vector<std::string> xaddrs;
    std::vector<std::string> scopes;
    std::set<Misbehaviour> misbehaviours;

    std::uint64_t probesSeen = 0;
    std::uint64_t repliesSent = 0;
    std::uint32_t messageNumber = 0;

    bool Does(Misbehaviour kind) const { return misbehaviours.contains(kind); }

    // The types that it has.
    bool SaysTransmitter() const { return isVideoTransmitter && !Does(Misbehaviour::DeviceOnly); }
    bool SaysDevice() const { return isDevice || Does(Misbehaviour::DeviceOnly); }
};

// What a camera says in its Scopes and XAddrs when it behaves.
std::vector<std::string> ScopesOf(const Camera& camera);
std::vector<std::string> XAddrsOf(const Camera& camera);

}  // namespace lansim
