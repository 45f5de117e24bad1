// An earlier result against a later one.
#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "finder/device/devicejson.h"
#include "finder/device/identity.h"

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
inline constexpr std::size_t kLongestDocumentBytes = std::size_t{256} * 1024 * 1024;

// "port: 80 -> 8080; hardware: IPC-1 -> IPC-2"
std::string ChangesText(const std::vector<FieldChange>& changes);

Json ChangesToJson(const std::vector<FieldChange>& changes);
Json ComparisonToJson(const Comparison& comparison);

// A line a difference: missing, new or changed; IP, MAC, what it is, what changed. Between tabs, or
// aligned for people.
std::string ComparisonText(const Comparison& comparison, bool aligned);

// Hardware, or else the name, or else the model.
const std::string& WhatItIs(const Device& device);

}  // namespace Lanscout
