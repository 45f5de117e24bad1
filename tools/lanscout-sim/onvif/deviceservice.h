// The device service of a camera: as much as clients need to go on after they have found it.
#pragma once

#include <chrono>
#include <string>

#include "tools/lanscout-sim/onvif/camera.h"

namespace lansim {

using WallTime = std::chrono::system_clock::time_point;

struct ServiceAnswer {
    unsigned status = 200;
    std::string contentType = "application/soap+xml; charset=utf-8";
    std::string body;
};

// Answers an HTTP request to the camera: the operations GetSystemDateAndTime, GetServices,
// GetCapabilities, GetDeviceInformation, GetProfiles, GetVideoSources, GetStreamUri and
// GetSnapshotUri, and the snapshot itself. Whoever sends is nobody to trust.
ServiceAnswer AnswerService(const Camera& camera, const std::string& method,
                            const std::string& path, const std::string& body, WallTime now);

}  // namespace lansim
