#include <pthread.h>

#include <atomic>
#include <mutex>

#include "host/standalone/seam.h"

ZelDbgLogCfg* g_pDbgLogCfg = nullptr;
int g_DbgLogPid = 0;

namespace {

constexpr int kCategories = 512;

ZelDbgLogCfg g_record;  // without process entries: its only process is this one
std::mutex g_writers;

// Readers take no lock and read each field by itself, with relaxed atomic loads.
template <typename T>
void Store(T& field, T value, std::memory_order order = std::memory_order_relaxed) {
    std::atomic_ref<T>(field).store(value, order);
}

// A forked child is another process than the one whose id is cached.
[[gnu::constructor]] void ForgetPidInChildren() {
    pthread_atfork(nullptr, nullptr, [] { Store(g_DbgLogPid, 0); });
}

}  // namespace

namespace StandaloneHost {

void AttachLogConfig() {
    const std::lock_guard lock(g_writers);
    for (std::int32_t& level : g_record.aCategLevel) {
        Store(level, std::int32_t{0});
    }
    Store(g_pDbgLogCfg, &g_record, std::memory_order_release);
}

void DetachLogConfig() {
    const std::lock_guard lock(g_writers);
    Store(g_pDbgLogCfg, static_cast<ZelDbgLogCfg*>(nullptr));
}

bool SetCategoryLevel(LOG_CATEG category, int level) {
    if (category < 0 || category >= kCategories) {
        return false;
    }
    Store(g_record.aCategLevel[category], std::int32_t{level});
    return true;
}

}  // namespace StandaloneHost
