// A TCP/IP stack of the kernel's for the simulated hosts.
#pragma once

#include <functional>
#include <memory>
#include <set>
#include <vector>

#include "tools/lanscout-sim/network/address.h"
#include "tools/lanscout-sim/network/descriptor.h"

namespace lansim {

// A TCP/IP stack for the simulated hosts: a second network namespace, reached through a tun
// device that carries bare IP packets, which takes every given address for its own. What is made
// while `set up` runs, sockets above all, belongs to that namespace and keeps it alive. Throws
// SetupError.
Descriptor MakePeerStack(const std::set<Ipv4>& addresses, const std::function<void()>& setUp);

}  // namespace lansim
