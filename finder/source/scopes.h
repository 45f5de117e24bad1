// What an ONVIF device's scopes say of it (ONVIF Core, 7.3.2.2, and makers' habits).
#pragma once

#include <string>
#include <vector>

#include "finder/device/device.h"

namespace Lanscout {

// Kind, name, location, hardware, profiles, serial, firmware, maker and claimedMac as far as the
// scopes have them, their percent-encoding undone, valid UTF-8 and short.
Device ReadScopes(const std::vector<std::string>& scopes);

// "00:1B:FF:01:02:03" from twelve digits with ':', '-' or nothing between; empty for another text
// and for the addresses that no device has (all zeros, all ones).
std::string MacFrom(const std::string& text);

}  // namespace Lanscout
