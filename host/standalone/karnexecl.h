// Runs a program with a limit on its time.
#pragma once

#include <chrono>

// The search runs arping with a deadline of one second; a runner that is still there after five
// hangs.
inline constexpr std::chrono::milliseconds kRunLimit{5000};

// Runs the program at `path` with `arguments` (the first is its own name, a null pointer closes
// them) and waits until it has ended. Returns its exit status, or -1 when it could not be started,
// was ended by a signal or took longer than `limit`, after which it is killed. A program whose
// status the host's handling of SIGCHLD has swallowed counts as successful when it ended by itself.
int RunProgram(const char* path, char* const* arguments, std::chrono::milliseconds limit);
