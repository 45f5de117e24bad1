// How a program steers the stand-alone host (liblanscout-host.so): where log lines go, which are
// printed, and who runs programs. A program that runs inside a server has the server's own means
// instead.
//
// Threads: every operation may be called by any thread at any time, unless it says otherwise.
#pragma once

#include <string_view>

#include "host/zellog.h"

namespace StandaloneHost {

// One log call. The texts are valid until the sink returns; what is kept must be copied.
struct LogRecord {
    // How grave it is: 0 when the caller's level is none of LOG_LEVEL's.
    LOG_LEVEL level{};

    // What the program itself wrote into the call: nothing in it came from the network, so it can
    // be compared to decide what happened. `format` is the printf format, its '\n' included. A null
    // category or function is "?".
    std::string_view category;
    std::string_view function;
    std::string_view format;

    // The message, formatted, without a line end. It may quote what a stranger sent, so nothing
    // should be decided by it. Control characters and escape sequences are made visible.
    std::string_view text;

    // The whole line as standard error would get it, with time, level, category and place, ending
    // in '\n'. Made safe as `text` is.
    std::string_view line;
};

// Receives one log call. Called on the thread that logs, possibly on several at once; must not
// throw. What is logged from inside a sink goes to standard error.
using LogSink = void (*)(const LogRecord& record, void* cookie);

// Sends log calls to `sink` from now on; a null `sink` sends their lines to standard error again
// (the default). When it returns, no thread is inside the former sink any more; so a sink must not
// call it. `cookie` is handed to the sink as it is and must outlive it.
void SetLogSink(LogSink sink, void* cookie);

// Attaches this process's in-memory configuration record (g_pDbgLogCfg), with every category at
// level 0 and no process entries. Attaching again resets the levels.
// Without a record, which is the default, lines of level 3 and lower are printed.
void AttachLogConfig();

// Detaches the record: g_pDbgLogCfg is null again. The record itself stays valid for the life of
// the process, so that a thread that is reading it does no harm.
void DetachLogConfig();

// Sets the level of one category in the record (attached or not); false for a category outside
// 0..511. LOG_CATEG_DISCOVERY is the one that the library logs under.
bool SetCategoryLevel(LOG_CATEG category, int level);

// Runs a program in the host's place and waits until it has ended. `arguments` is the program's
// argument list, its own path first, closed by a null pointer; it is valid until the runner
// returns. Returns 0 on success and anything else on failure. Called on the discovery threads of
// all searches, possibly on several at once; the search waits for it. Must not throw.
using ProcessRunner = int (*)(const char* path, const char* const* arguments);

// From now on the host starts no program itself: every one goes to `runner`. A null `runner` makes
// the host start them again (the default). A program that was begun before is not interrupted, so
// the former runner may still be inside when this returns.
//
// The library runs one program only: arping, for a camera whose MAC address the kernel does not
// know. A process that may not start programs, or that finds MAC addresses by other means, sets a
// runner that refuses; such a camera is then listed at once, with "N/A" for its MAC address:
//
//     StandaloneHost::SetProcessRunner([](const char*, const char* const*) { return -1; });
void SetProcessRunner(ProcessRunner runner);

}  // namespace StandaloneHost
