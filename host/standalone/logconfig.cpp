#include <pthread.h>

#include <atomic>
#include <mutex>

#include "host/standalone/seam.h"

ZelDbgLogCfg* g_pDbgLogCfg = nullptr;
int g_DbgLogPid = 0;

namespace {

struct Record {
    ZelDbgLogCfg config;
    ZelDbgLogProc aProc[StandaloneHost::kMaxProcessEntries];
};
static_assert(offsetof(Record, aProc) == sizeof(ZelDbgLogCfg));

constexpr int kCategories = 512;

Record g_record;
std::mutex g_writers;

// Readers take no lock and read each field by itself, with relaxed atomic loads.
template <typename T>
void Store(T& field, T value, std::memory_order order = std::memory_order_relaxed) {
    std::atomic_ref<T>(field).store(value, order);
}

// The count goes first and the entries are wiped, so that a late reader of the old count meets
// entries that raise nothing.
void ClearEntries() {
    Store(g_record.config.nProcCount, std::int32_t{0});
    for (ZelDbgLogProc& entry : g_record.aProc) {
        Store(entry.nPid, std::int32_t{0});
        Store(entry.nLevel, std::int32_t{0});
    }
}

// A forked child is another process than the one whose id is cached.
[[gnu::constructor]] void ForgetPidInChildren() {
    pthread_atfork(nullptr, nullptr, [] { Store(g_DbgLogPid, 0); });
}

}  // namespace

namespace StandaloneHost {

void AttachLogConfig() {
    const std::lock_guard lock(g_writers);
    ClearEntries();
    for (std::int32_t& level : g_record.config.aCategLevel) {
        Store(level, std::int32_t{0});
    }
    Store(g_pDbgLogCfg, &g_record.config, std::memory_order_release);
}

void DetachLogConfig() {
    const std::lock_guard lock(g_writers);
    Store(g_pDbgLogCfg, static_cast<ZelDbgLogCfg*>(nullptr));
}

bool SetCategoryLevel(LOG_CATEG category, int level) {
    if (category < 0 || category >= kCategories) {
        return false;
    }
    Store(g_record.config.aCategLevel[category], std::int32_t{level});
    return true;
}

bool AddProcessLevel(int pid, int level) {
    const std::lock_guard lock(g_writers);
    const std::int32_t count = g_record.config.nProcCount;
    if (count >= kMaxProcessEntries) {
        return false;
    }
    ZelDbgLogProc& entry = g_record.aProc[count];
    Store(entry.nLevel, std::int32_t{level});
    Store(entry.nPid, std::int32_t{pid}, std::memory_order_release);
    Store(g_record.config.nProcCount, count + 1, std::memory_order_release);
    return true;
}

void ClearProcessLevels() {
    const std::lock_guard lock(g_writers);
    ClearEntries();
}

}  // namespace StandaloneHost
