// Whether a Probe asks for a camera.
#pragma once

#include <string>

#include "tools/lanscout-sim/onvif/camera.h"
#include "tools/lanscout-sim/onvif/probe.h"

namespace lansim {

// Whether one scope asked for is met by one that a device has (WS-Discovery 2005/04, 5.1).
// An unknown rule meets nothing.
bool ScopeMatches(const std::string& asked, const std::string& owned, const std::string& rule);

// Whether the camera has every type and every scope that the Probe asks for, or is the one whom a
// Resolve asks for.
bool Matches(const Probe& probe, const Camera& camera);

}  // namespace lansim
