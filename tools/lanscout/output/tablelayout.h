// How devices become a table: which columns, how wide, what is cut.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "finder/device/fields.h"
#include "finder/text/safetext.h"

namespace Lanscout {

struct TableStyle {
    int width = 0;  // columns of the terminal; 0: no limit
    bool colour = false;
    Charset charset = Charset::Utf8;
};

// What stands in the place of a text that is not known, in columns that every table has.
inline constexpr char kNotKnown[] = "N/A";

// Whether every table has this column, known or not.
bool IsInEveryTable(const Field& field);

// The heading and a line for each device. Columns that are not in every table are left out where no
// device has a text; how a device is reached, and by which interface, also where it is the same for
// all. Where the width does not suffice, long texts are cut and then whole columns left out, the
// address never and a web address never cut.
std::vector<std::string> LayOutTable(std::span<const Device> devices, const TableStyle& style);

// Padded with spaces to `width` columns, and longer where it is longer.
std::string FitAtLeast(const std::string& text, int width);

}  // namespace Lanscout
