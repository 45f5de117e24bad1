// The log gate: which lines pass, what is read for that, and what a passing line carries.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "log/dbglog.h"
#include "tests/unit/support/expectedlog.h"
#include "tests/unit/support/fakesystem.h"
#include "tests/unit/support/recordinghost.h"

namespace {

using RecordingHost::IsLine;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr LOG_LEVEL kOne = LOG_LEVEL_ERROR;
constexpr LOG_LEVEL kThree = LOG_LEVEL_NOTICE;
constexpr LOG_LEVEL kFour = LOG_LEVEL_INFO;
constexpr int kPid = 4711;

// The record as the host lays it out, written byte by byte; the fields around those that count
// would let everything through.
class Record {
public:
    Record() {
        m_bytes.fill(0x7F);
        Put(32, 0);
        Put(2052, 0);
        g_pDbgLogCfg = reinterpret_cast<ZelDbgLogCfg*>(m_bytes.data());
    }
    ~Record() { g_pDbgLogCfg = nullptr; }
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    void CategorySeven(int level) { Put(32, level); }
    void Count(int count) { Put(2052, count); }
    void Entry(std::size_t index, int pid, int level) {
        Put(2056 + 8 * index, pid);
        Put(2060 + 8 * index, level);
    }

private:
    void Put(std::size_t at, std::int32_t value) { memcpy(&m_bytes.at(at), &value, sizeof(value)); }

    alignas(4) std::array<unsigned char, 2056 + 8 * 8> m_bytes;
};

class LogGate : public testing::Test {
protected:
    LogGate() {
        RecordingHost::Reset();
        FakeSystem::Current().getpid = [this] {
            ++m_nGetpid;
            return kPid;
        };
    }

    static bool Passes(LOG_LEVEL level) { return DbgLog::Passes(LOG_CATEG_DISCOVERY, level); }

    FakeSystem::Scope m_scope;
    std::atomic<int> m_nGetpid = 0;
};

TEST_F(LogGate, WithoutConfigurationLevelThreeAndLowerPass) {
    EXPECT_TRUE(Passes(kOne));
    EXPECT_TRUE(Passes(static_cast<LOG_LEVEL>(2)));
    EXPECT_TRUE(Passes(kThree));
    EXPECT_FALSE(Passes(kFour));
    EXPECT_FALSE(Passes(static_cast<LOG_LEVEL>(5)));
    EXPECT_TRUE(Passes(static_cast<LOG_LEVEL>(-1)));
    EXPECT_EQ(m_nGetpid, 0);
    EXPECT_EQ(g_DbgLogPid, 0);
}

TEST_F(LogGate, CategoryAtThreePassesOneAndThree) {
    Record record;
    record.CategorySeven(3);
    EXPECT_TRUE(Passes(kOne));
    EXPECT_TRUE(Passes(kThree));
    EXPECT_EQ(m_nGetpid, 0);
    EXPECT_FALSE(Passes(kFour));
}

TEST_F(LogGate, CategoryLevelDecidesFromEqualOn) {
    Record record;
    for (int level = -1; level <= 5; ++level) {
        record.CategorySeven(level);
        EXPECT_EQ(Passes(kOne), level >= 1) << level;
        EXPECT_EQ(Passes(kThree), level >= 3) << level;
        EXPECT_EQ(Passes(kFour), level >= 4) << level;
    }
}

TEST_F(LogGate, OtherCategoriesHaveTheirOwnLevel) {
    const Record record;  // every level but category 7's is 0x7F7F7F7F
    EXPECT_FALSE(Passes(kOne));
    EXPECT_TRUE(DbgLog::Passes(static_cast<LOG_CATEG>(6), kFour));
    EXPECT_TRUE(DbgLog::Passes(static_cast<LOG_CATEG>(8), kFour));
    EXPECT_TRUE(DbgLog::Passes(static_cast<LOG_CATEG>(0), kFour));
    EXPECT_TRUE(DbgLog::Passes(static_cast<LOG_CATEG>(511), kFour));
}

TEST_F(LogGate, OwnEntryRaisesProcessAboveCategory) {
    Record record;
    record.Count(1);
    record.Entry(0, kPid, 3);
    EXPECT_TRUE(Passes(kOne));
    EXPECT_TRUE(Passes(kThree));
    EXPECT_FALSE(Passes(kFour));
}

TEST_F(LogGate, OwnEntryNeverQuietsCategory) {
    Record record;
    record.CategorySeven(4);
    record.Count(1);
    record.Entry(0, kPid, 0);
    EXPECT_TRUE(Passes(kFour));
    EXPECT_EQ(m_nGetpid, 0);
    EXPECT_EQ(g_DbgLogPid, 0);
}

TEST_F(LogGate, CountOfZeroSuppressesWhateverEntriesHold) {
    Record record;
    record.Entry(0, kPid, 4);
    EXPECT_FALSE(Passes(kOne));
}

TEST_F(LogGate, NegativeCountSuppressesWhateverEntriesHold) {
    Record record;
    record.Entry(0, kPid, 4);
    for (const int count : {-1, INT32_MIN}) {
        record.Count(count);
        EXPECT_FALSE(Passes(kOne)) << count;
    }
}

TEST_F(LogGate, FirstOwnEntryCountsThoughLaterIsHigher) {
    Record record;
    record.Count(3);
    record.Entry(0, 1, 4);
    record.Entry(1, kPid, 1);
    record.Entry(2, kPid, 4);
    EXPECT_TRUE(Passes(kOne));
    EXPECT_FALSE(Passes(kThree));
}

TEST_F(LogGate, FirstOwnEntryCountsThoughLaterIsLower) {
    Record record;
    record.Count(2);
    record.Entry(0, kPid, 4);
    record.Entry(1, kPid, 0);
    EXPECT_TRUE(Passes(kFour));
}

TEST_F(LogGate, LastEntryInCountIsFound) {
    Record record;
    record.Count(8);
    for (std::size_t i = 0; i < 7; ++i) {
        record.Entry(i, 100, 4);
    }
    record.Entry(7, kPid, 4);
    EXPECT_TRUE(Passes(kFour));
}

TEST_F(LogGate, EntryBehindCountIsNotRead) {
    Record record;
    record.Count(1);
    record.Entry(0, 1, 4);
    record.Entry(1, kPid, 4);
    EXPECT_FALSE(Passes(kOne));
}

TEST_F(LogGate, EntriesOfOtherProcessesSayNothing) {
    Record record;
    record.Count(2);
    record.Entry(0, kPid + 1, 4);
    record.Entry(1, 0, 4);
    EXPECT_FALSE(Passes(kOne));
}

TEST_F(LogGate, ProcessIdIsFetchedOnFirstRefusalAndOnlyOnce) {
    Record record;
    record.CategorySeven(3);
    Passes(kOne);
    EXPECT_EQ(g_DbgLogPid, 0);
    Passes(kFour);  // count is 0: fetched all the same
    EXPECT_EQ(g_DbgLogPid, kPid);
    Passes(kFour);
    record.Count(1);
    Passes(kFour);
    EXPECT_EQ(m_nGetpid, 1);
}

TEST_F(LogGate, KnownProcessIdIsUsedAsItStands) {
    Record record;
    record.Count(1);
    record.Entry(0, 99, 4);
    g_DbgLogPid = 99;
    EXPECT_TRUE(Passes(kFour));
    EXPECT_EQ(m_nGetpid, 0);
    EXPECT_EQ(g_DbgLogPid, 99);
}

TEST_F(LogGate, PassingLineCarriesSinkTextsPlaceAndMessage) {
    const int line = __LINE__ + 1;
    DBG_LOG(LOG_CATEG_DISCOVERY, kThree, "utils/wsdiscoverybase", "Value [%d]\n", 5);
    const auto lines = RecordingHost::LogLines();
    ASSERT_THAT(lines, ElementsAre(IsLine(3, "TestBody", "Value [%d]\n", "Value [5]\n")));
    EXPECT_EQ(lines[0].line, line);
}

TEST_F(LogGate, ValuesWithoutTextArePrintedAsUnknown) {
    DBG_LOG(static_cast<LOG_CATEG>(8), static_cast<LOG_LEVEL>(2), "file", "text\n");
    const auto lines = RecordingHost::LogLines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].category, "unknown");
    EXPECT_EQ(lines[0].level, "unknown");
}

TEST_F(LogGate, RefusedLineEvaluatesNothing) {
    int evaluated = 0;
    DBG_LOG(LOG_CATEG_DISCOVERY, kFour, "file", "%d\n", ++evaluated);
    EXPECT_EQ(evaluated, 0);
    EXPECT_THAT(RecordingHost::LogLines(), IsEmpty());
}

// For the thread sanitizer: the record's owner writes while others read.
TEST_F(LogGate, ManyThreadsAskWhileOwnerChangesLevels) {
    RecordingHost::SetLogLevel(0);
    ZelDbgLogCfg& config = *g_pDbgLogCfg;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int n = 0; n < 2000; ++n) {
                Passes(kFour);
            }
            EXPECT_FALSE(Passes(static_cast<LOG_LEVEL>(5)));
        });
    }
    for (int n = 0; n < 2000; ++n) {
        std::atomic_ref(config.aCategLevel[7]).store(n % 2 * 4, std::memory_order_relaxed);
    }
    std::atomic_ref(config.aCategLevel[7]).store(4, std::memory_order_relaxed);
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(Passes(kFour));
    EXPECT_GE(m_nGetpid, 1);
    EXPECT_LE(m_nGetpid, 4);  // each thread may be the first
    EXPECT_EQ(g_DbgLogPid, kPid);
}

}  // namespace
