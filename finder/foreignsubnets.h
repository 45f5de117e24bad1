// What to say of devices that are on our wire with addresses of another subnet.
#pragma once

#include <span>
#include <vector>

#include "finder/device/device.h"
#include "finder/machine/problem.h"

namespace Lanscout {

// A notice for each foreign subnet of each interface, with the command that makes its devices
// reachable. The address in it is one that no device of the list has.
std::vector<Problem> ForeignSubnets(std::span<const Device> devices);

}  // namespace Lanscout
