// Reading a scenario file.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "tools/lanscout-sim/onvif/camera.h"
#include "tools/lanscout-sim/timeline.h"
#include "tools/lanscout-sim/upnp/upnpdevice.h"

namespace lansim {

struct Scenario {
    std::deque<Camera> cameras;  // what a device leaves open is empty or 0
    std::deque<UpnpDevice> upnpDevices;
    std::vector<TimelineEvent> timeline;
};

// The format is described in docs/simulator.md. Throws SetupError that names the place and what
// is wrong there; `source` is what the text is called in that message.
Scenario ParseScenario(const std::string& json, const std::string& source);
Scenario ReadScenario(const std::string& fileName);

}  // namespace lansim
