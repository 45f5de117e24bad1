// Where finished log lines go.
#pragma once

#include <string_view>

// Hands one whole line, '\n' included, to the sink or else to standard error.
void WriteLogLine(std::string_view line);
