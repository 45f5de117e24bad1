// The log gate that refuses a line, against one load and one compare.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

#include "control/standalonehost.h"
#include "log/dbglog.h"

#define BENCH_LOG() DBG_LOG(LOG_CATEG_DISCOVERY, LOG_LEVEL_INFO, "bench/loggate", "never: %d\n", 1)

namespace {

constexpr int kSitesInLoop = 16;

[[gnu::noinline, gnu::cold]] void Print() {
    ZelPrintf(LOG_TYPE_DEFAULT, "", "", "", 0, "", "never\n");
}

// One load of a global that another thread may change, one compare.
void Floor() {
    if (DbgLog::Load(g_pDbgLogCfg) == reinterpret_cast<ZelDbgLogCfg*>(1)) {
        Print();
    }
}

void OneLoadOneCompare(benchmark::State& state) {
    for (auto _ : state) {
        for (int i = 0; i < kSitesInLoop; i += 4) {
            Floor();
            Floor();
            Floor();
            Floor();
        }
    }
    state.SetItemsProcessed(state.iterations() * kSitesInLoop);
}

void Refuse(benchmark::State& state) {
    for (auto _ : state) {
        for (int i = 0; i < kSitesInLoop; i += 4) {
            BENCH_LOG();
            BENCH_LOG();
            BENCH_LOG();
            BENCH_LOG();
        }
    }
    state.SetItemsProcessed(state.iterations() * kSitesInLoop);
}

void GateWithoutConfiguration(benchmark::State& state) {
    StandaloneHost::DetachLogConfig();
    Refuse(state);
}

void GateRefusedByCategory(benchmark::State& state) {
    StandaloneHost::AttachLogConfig();
    StandaloneHost::SetCategoryLevel(LOG_CATEG_DISCOVERY, LOG_LEVEL_NOTICE);
    Refuse(state);
}

void GateRefusedByProcess(benchmark::State& state) {
    StandaloneHost::AttachLogConfig();
    StandaloneHost::SetCategoryLevel(LOG_CATEG_DISCOVERY, LOG_LEVEL_NOTICE);
    StandaloneHost::AddProcessLevel(static_cast<int>(getpid()), LOG_LEVEL_NOTICE);
    Refuse(state);
}

// Whatever else runs on the machine only ever adds.
double Least(const std::vector<double>& times) {
    return *std::min_element(times.begin(), times.end());
}

}  // namespace

BENCHMARK(OneLoadOneCompare)->Repetitions(15)->ComputeStatistics("least", Least);
BENCHMARK(GateWithoutConfiguration)->Repetitions(15)->ComputeStatistics("least", Least);
BENCHMARK(GateRefusedByCategory)->Repetitions(15)->ComputeStatistics("least", Least);
BENCHMARK(GateRefusedByProcess)->Repetitions(15)->ComputeStatistics("least", Least);
