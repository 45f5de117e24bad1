// Where a run takes place: in a network namespace behind a tap device, or on the loopback device.
#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>

#include "tools/lanscout-sim/network/descriptor.h"
#include "tools/lanscout-sim/network/netns.h"

namespace lansim {

struct PlaceRequest {
    bool mayBeTap = true;
    bool mayBeLoopback = true;
    std::string netns;   // the namespace's name; empty: without one
    std::string tap;     // the device's name
    std::string bridge;  // an existing one that the device joins; empty: none
    // Whether the searcher is a program that this process starts. Only such a one is in the
    // namespace that loopback mode gets where that can be had.
    bool hasCommand = false;
    bool asRoot = false;  // in a user namespace: be its root rather than the same user as outside
};

// What was found; it lasts as long as this object.
struct Place {
    std::unique_ptr<NetworkNamespace> inside;  // null: this machine's own network
    Descriptor tap;                            // open: each host is behind this device
    bool isUserNamespace = false;
    std::string whyNoTap;
};

// Tries a tap device in a namespace of its own, as root and then in a user namespace, and loopback
// after that. Throws SetupError when nothing that may be can be had.
Place FindPlace(const PlaceRequest& request);

}  // namespace lansim
