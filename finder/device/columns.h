// The columns of the table, the plain lines and the CSV.
#pragma once

#include <string>
#include <vector>

#include "finder/device/device.h"

namespace Lanscout {

struct Column {
    const char* name;   // for --sort and as CSV heading
    const char* title;  // as table heading
    std::string (*text)(const Device& device);
};

// In the order of the plain lines and the CSV, which stays as it is: new ones go to the end.
const std::vector<Column>& Columns();

std::vector<std::string> ColumnNames();

// The column of that name; there must be one.
const Column& ColumnNamed(const std::string& name);

// Orders by a column; addresses and ports by their value, unknown ones last, equal ones by address.
void SortDevices(std::vector<Device>& devices, const std::string& column);

}  // namespace Lanscout
