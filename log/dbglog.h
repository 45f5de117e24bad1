// The log gate, the enum texts and the logging operation that every diagnostic line goes through.
#pragma once

#include <unistd.h>

#include <atomic>
#include <cstdint>

#include "host/zellog.h"

// The text of an enum value, or "unknown" where the host's map has none. The text is the map's and
// stays valid until the process exits.
//
// There must be one map per process for each enum, however many shared objects use the template.
// So it has default visibility whatever the build says, and it is not marked inline: g++ hides the
// statics of inline templates under -fvisibility-inlines-hidden in spite of the attribute.
template <typename T>
[[gnu::visibility("default")]] const char* Enum2String(T value) {
    static ZelEnum2StrMap<T> Map;
    const auto found = Map.find(value);
    return found == Map.end() ? "unknown" : found->second;
}

namespace DbgLog {

// With no configuration attached, failures still show while the detailed lines stay quiet.
inline constexpr int kHighestLevelWithoutConfig = 3;

// The record belongs to another process that may write to it meanwhile, and g_DbgLogPid is filled
// by whichever thread comes first: relaxed loads and stores cost what plain ones do and keep that
// free of undefined behaviour.
template <typename T>
inline T Load(T& shared) {
    return std::atomic_ref<T>(shared).load(std::memory_order_relaxed);
}

inline int ProcessId() {
    const std::atomic_ref<int> cached(g_DbgLogPid);
    int pid = cached.load(std::memory_order_relaxed);
    if (pid == 0) {
        pid = static_cast<int>(getpid());
        cached.store(pid, std::memory_order_relaxed);
    }
    return pid;
}

// Whether this process's own entry lets the level through. The first entry counts. It is asked
// only after the category has refused the line, so an entry can make a process more verbose than
// its category and never quieter; that is meant.
inline bool ProcessPasses(ZelDbgLogCfg* config, LOG_LEVEL level) {
    const int pid = ProcessId();  // before the count: the first refused line fills the cache
    const std::int32_t count = Load(config->nProcCount);
    auto* const entries = reinterpret_cast<ZelDbgLogProc*>(config + 1);
    for (std::int32_t i = 0; i < count; ++i) {
        if (Load(entries[i].nPid) == pid) {
            return Load(entries[i].nLevel) >= level;
        }
    }
    return false;
}

// The log gate: whether a line of this category and level is printed at all. Takes no lock.
inline bool Passes(LOG_CATEG category, LOG_LEVEL level) {
    ZelDbgLogCfg* const config = Load(g_pDbgLogCfg);
    if (config == nullptr) {
        return level <= kHighestLevelWithoutConfig;
    }
    return Load(config->aCategLevel[category]) >= level || ProcessPasses(config, level);
}

}  // namespace DbgLog

// The logging operation: gate, then one call of the printer with the place of the call. It is a
// macro for the call's own line and function name, and so that nothing behind a refused gate, the
// arguments included, is evaluated.
#define DBG_LOG(category, level, file, ...) \
    DBG_LOG_OF(static_cast<const char*>(__func__), category, level, file, __VA_ARGS__)

// The same in the name of another function, for a part of it that has its own.
#define DBG_LOG_OF(function, category, level, file, ...)                                          \
    (DbgLog::Passes(category, level)                                                              \
         ? ZelPrintf(LOG_TYPE_DEFAULT, Enum2String(category), Enum2String(level), file, __LINE__, \
                     function, __VA_ARGS__)                                                       \
         : void())
