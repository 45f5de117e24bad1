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

// What the gate has to read of a record that refuses: the record's place, the category's level, the
// process id, the number of process entries.
void FloorOfRecord() {
    ZelDbgLogCfg* const config = DbgLog::Load(g_pDbgLogCfg);
    if (config == nullptr || DbgLog::Load(config->aCategLevel[LOG_CATEG_DISCOVERY]) >= 4 ||
        DbgLog::Load(g_DbgLogPid) == 0 || DbgLog::Load(config->nProcCount) > 0) {
        Print();
    }
}

void FourLoadsFourCompares(benchmark::State& state) {
    StandaloneHost::AttachLogConfig();
    g_DbgLogPid = static_cast<int>(getpid());
    for (auto _ : state) {
        for (int i = 0; i < kSitesInLoop; i += 4) {
            FloorOfRecord();
            FloorOfRecord();
            FloorOfRecord();
            FloorOfRecord();
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
    struct {
        ZelDbgLogCfg config;
        ZelDbgLogProc process;
    } record{};
    record.config.aCategLevel[LOG_CATEG_DISCOVERY] = LOG_LEVEL_NOTICE;
    record.config.nProcCount = 1;
    record.process = {static_cast<std::int32_t>(getpid()), LOG_LEVEL_NOTICE};
    g_pDbgLogCfg = &record.config;
    Refuse(state);
    StandaloneHost::DetachLogConfig();
}

// Whatever else runs on the machine only ever adds.
double Least(const std::vector<double>& times) {
    return *std::min_element(times.begin(), times.end());
}

}  // namespace

BENCHMARK(OneLoadOneCompare)->Repetitions(15)->ComputeStatistics("least", Least);
BENCHMARK(GateWithoutConfiguration)->Repetitions(15)->ComputeStatistics("least", Least);
BENCHMARK(FourLoadsFourCompares)->Repetitions(15)->ComputeStatistics("least", Least);
BENCHMARK(GateRefusedByCategory)->Repetitions(15)->ComputeStatistics("least", Least);
BENCHMARK(GateRefusedByProcess)->Repetitions(15)->ComputeStatistics("least", Least);
