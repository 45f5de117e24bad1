// The result for programs.
#pragma once

#include <string>
#include <vector>

#include "finder/device/devicejson.h"
#include "finder/report.h"

namespace Lanscout {

// A device as one line, its fields between tabs in the order of Columns(), "-" where one is empty.
std::string PlainLine(const Device& device);

// The fields of PlainLine, by name.
std::string PlainHeading();

// RFC 4180, with a heading. A field that a spreadsheet would take for a formula has an apostrophe
// in front.
std::string CsvDocument(const std::vector<Device>& devices);

// The whole result; lanscout.schema.json describes it.
Json ReportToJson(const Report& report);

}  // namespace Lanscout
