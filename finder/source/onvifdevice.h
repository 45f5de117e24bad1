// A device from what the camera search reads of a reply.
#pragma once

#include <string>

#include "finder/device/device.h"

namespace Lanscout {

Device OnvifDevice(const std::string& ip, int port, const std::string& hardware, Kind kind);

}  // namespace Lanscout
