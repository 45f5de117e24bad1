// Where finished log lines go.
#pragma once

#include "host/standalone/seam.h"

// Hands one log call to the sink, or else its line to standard error.
void WriteLogRecord(const StandaloneHost::LogRecord& record);
