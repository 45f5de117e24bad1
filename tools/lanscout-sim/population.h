#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "tools/lanscout-sim/camera.h"

namespace lansim {

// What a user asked for cannot be had; the text says why and what to change.
class SetupError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct PopulationRequest {
    Subnet network;                // the searcher's address and the network all devices stand in
    std::uint32_t firstHost = 10;  // the first generated camera's number in the network
    std::size_t generated = 0;
    std::uint64_t seed = 1;
    std::vector<Camera> named;              // from a scenario; what they leave open is filled in
    std::vector<MisbehaviourShare> shares;  // of the generated cameras
};

// All cameras of a run: the named ones first, then the generated. The same request makes the
// same cameras. Throws SetupError when an address is taken twice or the network is too small.
std::vector<Camera> MakeCameras(const PopulationRequest& request);

}  // namespace lansim
