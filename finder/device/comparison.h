// An earlier list of devices against a later one.
#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "finder/device/changes.h"
#include "finder/device/devicejson.h"

namespace Lanscout {

struct ChangedDevice {
    Device before;
    Device after;
    std::vector<FieldChange> changes;
};

struct Comparison {
    std::vector<Device> missing;
    std::vector<Device> added;
    std::vector<ChangedDevice> changed;

    bool IsSame() const { return missing.empty() && added.empty() && changed.empty(); }
};

Comparison Compare(const std::vector<Device>& before, const std::vector<Device>& after);

// The devices of a --json document, or what is wrong with the text.
std::variant<std::vector<Device>, std::string> DevicesFromDocument(std::string_view text);

// The longest document that is read.
inline constexpr std::size_t kLongestDocumentBytes = std::size_t{32} * 1024 * 1024;

Json ComparisonToJson(const Comparison& comparison);

}  // namespace Lanscout
