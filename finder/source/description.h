// A UPnP device's description document (UPnP Device Architecture 1.0, 2.1).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "finder/device/device.h"

namespace Lanscout {

// What the root device says of itself, found at the URL `location`; nothing when the URL's host is
// no IPv4 address. A document that cannot be read leaves the device without a name.
std::optional<Device> ReadDescription(std::string_view xml, const std::string& location);

// The kind that a device type names, such as "urn:schemas-upnp-org:device:MediaServer:1".
Kind KindOfDeviceType(std::string_view deviceType);

// The kind that words such as "Network Dome Camera" or "IP Camera" tell; a "Digital Camera" takes
// pictures elsewhere.
Kind KindOfModelDescription(std::string_view text);

// `reference` made absolute with `base`; empty unless that gives an http or https URL with a host,
// without user name, control characters or spaces.
std::string ResolvePage(const std::string& reference, const std::string& base);

}  // namespace Lanscout
