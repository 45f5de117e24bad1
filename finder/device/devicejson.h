// A device as JSON, as --json writes it and --compare reads it.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>

#include "finder/device/device.h"

namespace Lanscout {

using Json = nlohmann::ordered_json;

Json DeviceToJson(const Device& device);

// Nothing when it is no object or has no usable address; other members that are missing or of
// another type stay unknown.
std::optional<Device> DeviceFromJson(const Json& json);

// One line, all ASCII, so that it is harmless on any terminal.
std::string DumpLine(const Json& json);

// The same on several lines.
std::string DumpDocument(const Json& json);

}  // namespace Lanscout
