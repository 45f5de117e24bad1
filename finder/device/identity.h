// Which device of one result is which of another, and what has changed about it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "finder/device/device.h"

namespace Lanscout {

// For each of `before` its partner's index in `after`. A device is the same as before when its MAC
// address is, or its unique name, or else its IP address as far as the MAC addresses do not
// contradict.
std::vector<std::optional<std::size_t>> MatchDevices(const std::vector<Device>& before,
                                                     const std::vector<Device>& after);

struct FieldChange {
    std::string field;
    std::string before;
    std::string after;

    bool operator==(const FieldChange&) const = default;
};

// What is unknown on one side has not changed: an answer may have been lost.
std::vector<FieldChange> ChangesBetween(const Device& before, const Device& after);

}  // namespace Lanscout
