#pragma once

#include <string>

#include "tools/lanscout-sim/address.h"
#include "tools/lanscout-sim/descriptor.h"

namespace lansim {

// Puts the calling process into a network namespace of its own, and back again at the end.
// A name makes it one that `ip netns exec NAME` enters. Throws SetupError.
class NetworkNamespace {
public:
    explicit NetworkNamespace(const std::string& name);
    NetworkNamespace(const NetworkNamespace&) = delete;
    NetworkNamespace& operator=(const NetworkNamespace&) = delete;
    ~NetworkNamespace();

private:
    void MakeName();

    std::string m_path;  // empty: without a name
    Descriptor m_original;
};

// A tap device in the current namespace, up, with the searcher's address and the multicast
// route, and the loopback device up too. The descriptor carries Ethernet frames, one a read or
// write, without waiting; closing it removes the device. Throws SetupError.
struct Tap {
    Descriptor frames;
    Mac mac{};
};
Tap MakeTap(const std::string& name, const Subnet& searcher);

}  // namespace lansim
