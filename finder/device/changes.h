// What has changed about a device.
#pragma once

#include <string>
#include <vector>

#include "finder/device/fields.h"

namespace Lanscout {

struct FieldChange {
    std::string field;  // its name in JSON
    std::string before;
    std::string after;

    bool operator==(const FieldChange&) const = default;
};

// Of the fields whose change is news. What is unknown on one side has not changed: an answer may
// have been lost.
std::vector<FieldChange> ChangesBetween(const Device& before, const Device& after);

// "port: 80 -> 8080; hardware: IPC-1 -> IPC-2", safe to show.
std::string ChangesText(const std::vector<FieldChange>& changes);

Json ChangesToJson(const std::vector<FieldChange>& changes);

}  // namespace Lanscout
