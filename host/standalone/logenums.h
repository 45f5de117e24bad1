// The texts of the log levels, in both directions.
#pragma once

#include <string_view>

#include "host/standalone/seam.h"

// The level that has this text; 0 when none has.
LOG_LEVEL LevelOfText(std::string_view text);
