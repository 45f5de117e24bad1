// Devices as a table for people.
#pragma once

#include <string>
#include <vector>

#include "finder/device/device.h"
#include "finder/text/safetext.h"

namespace Lanscout {

struct TableStyle {
    int width = 0;  // columns of the terminal; 0: no limit
    bool colour = false;
    Charset charset = Charset::Utf8;
};

// The heading and a line for each device. Columns in which no device has a text are left out; where
// the width does not suffice, long texts are cut and then whole columns left out, the address never
// and a web address never cut.
std::vector<std::string> LayOutTable(const std::vector<Device>& devices, const TableStyle& style);

}  // namespace Lanscout
