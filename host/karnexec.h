// What the server provides for running an external program.
#pragma once

// Runs the program at `path` with the argument texts that follow `options`, closed by a null
// pointer, and waits until it has ended. Returns 0 when the run succeeded, non-zero otherwise.
// `options` is the server's own option word. Any thread may call it.
int KarnExecl(const char* path, int options, ...) __attribute__((sentinel));
