// A device as JSON, as --json writes it and --compare reads it.
#pragma once

#include <optional>
#include <string>

#include "finder/device/fields.h"

namespace Lanscout {

Json DeviceToJson(const Device& device);

// The same without what is not known: what DeviceFromJson makes of it is the same device.
Json KnownToJson(const Device& device);

// Nothing when it is no object or has no usable address; other members that are missing or of
// another type stay unknown, and members that we do not know are passed over.
std::optional<Device> DeviceFromJson(const Json& json);

// The JSON schema of a device.
Json DeviceSchema();

// One line, all ASCII, so that it is harmless on any terminal.
std::string DumpLine(const Json& json);

// The same on several lines.
std::string DumpDocument(const Json& json);

}  // namespace Lanscout
