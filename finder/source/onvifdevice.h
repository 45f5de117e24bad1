// A device from what it says of itself in ONVIF's words.
#pragma once

#include <string>
#include <vector>

#include "finder/device/device.h"
#include "finder/source/reply.h"
#include "finder/source/serviceaddress.h"

namespace Lanscout {

// From a ProbeMatch; one without anything leaves a device of which only the address is known.
Device OnvifDevice(const ProbeMatch& match, const ReplySender& sender);

// The kind that Types name, each as {namespace}name: Camera when one is ONVIF's
// NetworkVideoTransmitter; Other when they name something that is neither that nor what every ONVIF
// or DPWS device may be, such as a printer or ONVIF's NetworkVideoDisplay; Unknown otherwise.
Kind KindOfTypes(const std::vector<std::string>& types);

}  // namespace Lanscout
