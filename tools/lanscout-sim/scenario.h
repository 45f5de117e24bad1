// Reading a scenario file.
#pragma once

#include <string>
#include <vector>

#include "tools/lanscout-sim/onvif/camera.h"
#include "tools/lanscout-sim/upnp/upnpdevice.h"

namespace lansim {

struct Scenario {
    std::vector<Camera> cameras;  // what a device leaves open is empty or 0
    std::vector<UpnpDevice> upnpDevices;
};

// The format is described in docs/simulator.md. Throws SetupError that names the place and what
// is wrong there; `source` is what the text is called in that message.
Scenario ParseScenario(const std::string& json, const std::string& source);
Scenario ReadScenario(const std::string& fileName);

}  // namespace lansim
