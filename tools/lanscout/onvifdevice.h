// A device from what the camera search reads of a reply.
#pragma once

#include <string>

#include "tools/lanscout/device.h"

namespace LanscoutTool {

Device OnvifDevice(const std::string& ip, int port, const std::string& hardware, Kind kind);

}  // namespace LanscoutTool
