// Devices as JSON: what a scenario says of them, and the truth that is written about them. Both are
// one format, so that a truth is a scenario.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "tools/lanscout-sim/jsonreader.h"
#include "tools/lanscout-sim/onvif/camera.h"
#include "tools/lanscout-sim/upnp/upnpdevice.h"

namespace lansim {

// What stands before the name of a file that a device names, unless that begins with a slash.
struct DeviceFiles {
    std::string folder;
};

// Changes what the object has members for and leaves the rest. Throws SetupError that names the
// member. All members of the object must be known ones.
void ReadCamera(JsonReader& reader, const DeviceFiles& files, Camera& camera);
void ReadUpnpDevice(JsonReader& reader, UpnpDevice& device);

// What a searcher could know of the device if it behaved, and how it does behave.
nlohmann::ordered_json TruthOf(const Camera& camera);
nlohmann::ordered_json TruthOf(const UpnpDevice& device);

}  // namespace lansim
