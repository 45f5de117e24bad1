#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "control/standalonehost.h"
#include "log/dbglog.h"

namespace {

class LogConfigTest : public ::testing::Test {
protected:
    void SetUp() override {
        StandaloneHost::AttachLogConfig();  // resets what another test left
        StandaloneHost::DetachLogConfig();
    }
    void TearDown() override { SetUp(); }
};

bool Passes(int level) {
    return DbgLog::Passes(LOG_CATEG_DISCOVERY, static_cast<LOG_LEVEL>(level));
}

TEST(LogConfigDefaultTest, NoRecordIsAttached) {
    EXPECT_EQ(g_pDbgLogCfg, nullptr);
}

TEST_F(LogConfigTest, WithoutARecordLevelThreePassesAndFourDoesNot) {
    EXPECT_TRUE(Passes(LOG_LEVEL_NOTICE));
    EXPECT_FALSE(Passes(LOG_LEVEL_INFO));
}

TEST_F(LogConfigTest, AttachedRecordHasLevelsOfZeroAndNoEntries) {
    StandaloneHost::AttachLogConfig();
    ASSERT_NE(g_pDbgLogCfg, nullptr);
    for (const std::int32_t level : g_pDbgLogCfg->aCategLevel) {
        EXPECT_EQ(level, 0);
    }
    EXPECT_EQ(g_pDbgLogCfg->nProcCount, 0);
    EXPECT_FALSE(Passes(LOG_LEVEL_ERROR));
}

TEST_F(LogConfigTest, AttachingAgainResetsLevelsAndEntries) {
    StandaloneHost::AttachLogConfig();
    StandaloneHost::SetCategoryLevel(LOG_CATEG_DISCOVERY, 4);
    StandaloneHost::AddProcessLevel(getpid(), 4);
    StandaloneHost::AttachLogConfig();
    EXPECT_FALSE(Passes(LOG_LEVEL_ERROR));
    EXPECT_EQ(g_pDbgLogCfg->nProcCount, 0);
}

TEST_F(LogConfigTest, CategoryLevelIsWhatTheGateGoesBy) {
    StandaloneHost::AttachLogConfig();
    EXPECT_TRUE(StandaloneHost::SetCategoryLevel(LOG_CATEG_DISCOVERY, 3));
    EXPECT_TRUE(Passes(LOG_LEVEL_NOTICE));
    EXPECT_FALSE(Passes(LOG_LEVEL_INFO));
}

TEST_F(LogConfigTest, OtherCategoryDoesNotCount) {
    StandaloneHost::AttachLogConfig();
    EXPECT_TRUE(StandaloneHost::SetCategoryLevel(static_cast<LOG_CATEG>(8), 4));
    EXPECT_FALSE(Passes(LOG_LEVEL_ERROR));
}

TEST_F(LogConfigTest, CategoriesRunFromZeroTo511) {
    const auto set = [](int category) {
        return StandaloneHost::SetCategoryLevel(static_cast<LOG_CATEG>(category), 2);
    };
    StandaloneHost::AttachLogConfig();
    EXPECT_TRUE(set(0));
    EXPECT_TRUE(set(511));
    EXPECT_EQ(g_pDbgLogCfg->aCategLevel[0], 2);
    EXPECT_EQ(g_pDbgLogCfg->aCategLevel[511], 2);
    EXPECT_FALSE(set(-1));
    EXPECT_FALSE(set(512));
    EXPECT_EQ(g_pDbgLogCfg->nReserved, 0);
    EXPECT_EQ(g_pDbgLogCfg->nProcCount, 0);
}

TEST_F(LogConfigTest, LevelSetWhileDetachedIsInTheRecordThatAReaderStillHas) {
    StandaloneHost::AttachLogConfig();
    const ZelDbgLogCfg* const record = g_pDbgLogCfg;
    StandaloneHost::DetachLogConfig();
    EXPECT_EQ(g_pDbgLogCfg, nullptr);
    EXPECT_TRUE(StandaloneHost::SetCategoryLevel(LOG_CATEG_DISCOVERY, 4));
    EXPECT_EQ(record->aCategLevel[LOG_CATEG_DISCOVERY], 4);
}

TEST_F(LogConfigTest, EntryAddedWhileDetachedIsInTheRecordThatAReaderStillHas) {
    StandaloneHost::AttachLogConfig();
    const ZelDbgLogCfg* const record = g_pDbgLogCfg;
    StandaloneHost::DetachLogConfig();
    EXPECT_TRUE(StandaloneHost::AddProcessLevel(getpid(), 4));
    EXPECT_EQ(record->nProcCount, 1);
}

TEST_F(LogConfigTest, EntryRaisesThisProcess) {
    StandaloneHost::AttachLogConfig();
    EXPECT_TRUE(StandaloneHost::AddProcessLevel(getpid(), 3));
    EXPECT_TRUE(Passes(LOG_LEVEL_NOTICE));
    EXPECT_FALSE(Passes(LOG_LEVEL_INFO));
}

TEST_F(LogConfigTest, EntryOfAnotherProcessDoesNotRaiseThisOne) {
    StandaloneHost::AttachLogConfig();
    EXPECT_TRUE(StandaloneHost::AddProcessLevel(getpid() + 1, 4));
    EXPECT_FALSE(Passes(LOG_LEVEL_ERROR));
}

TEST_F(LogConfigTest, FirstEntryOfAProcessCounts) {
    StandaloneHost::AttachLogConfig();
    StandaloneHost::AddProcessLevel(getpid(), 1);
    StandaloneHost::AddProcessLevel(getpid(), 4);
    EXPECT_TRUE(Passes(LOG_LEVEL_ERROR));
    EXPECT_FALSE(Passes(LOG_LEVEL_NOTICE));
}

TEST_F(LogConfigTest, ClearedEntriesRaiseNothing) {
    StandaloneHost::AttachLogConfig();
    StandaloneHost::SetCategoryLevel(LOG_CATEG_DISCOVERY, 1);
    StandaloneHost::AddProcessLevel(getpid(), 4);
    StandaloneHost::ClearProcessLevels();
    EXPECT_EQ(g_pDbgLogCfg->nProcCount, 0);
    EXPECT_TRUE(Passes(LOG_LEVEL_ERROR));
    EXPECT_FALSE(Passes(LOG_LEVEL_INFO));
}

TEST_F(LogConfigTest, TableTakesSixtyFourEntriesAndHasRoomAgainWhenCleared) {
    StandaloneHost::AttachLogConfig();
    for (int i = 1; i < StandaloneHost::kMaxProcessEntries; ++i) {
        EXPECT_TRUE(StandaloneHost::AddProcessLevel(getpid() + i, 1)) << i;
    }
    EXPECT_TRUE(StandaloneHost::AddProcessLevel(getpid(), 4));
    EXPECT_TRUE(Passes(LOG_LEVEL_INFO));
    EXPECT_FALSE(StandaloneHost::AddProcessLevel(getpid(), 4));
    EXPECT_EQ(g_pDbgLogCfg->nProcCount, StandaloneHost::kMaxProcessEntries);
    StandaloneHost::ClearProcessLevels();
    EXPECT_TRUE(StandaloneHost::AddProcessLevel(getpid(), 4));
}

TEST_F(LogConfigTest, ForkedChildGoesByItsOwnProcessId) {
    StandaloneHost::AttachLogConfig();
    StandaloneHost::AddProcessLevel(getpid(), 4);
    ASSERT_TRUE(Passes(LOG_LEVEL_INFO));
    ASSERT_EQ(g_DbgLogPid, getpid());
    const pid_t child = fork();
    if (child == 0) {
        _exit(g_DbgLogPid == 0 && !Passes(LOG_LEVEL_INFO) && g_DbgLogPid == getpid() ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(g_DbgLogPid, getpid());
}

// For the thread sanitizer: the gate takes no lock.
TEST_F(LogConfigTest, RecordMayChangeWhileOtherThreadsPassTheGate) {
    std::atomic<bool> done = false;
    std::vector<std::thread> readers;
    std::atomic<int> passed = 0;
    readers.reserve(3);
    for (int t = 0; t < 3; ++t) {
        readers.emplace_back([&] {
            while (!done) {
                passed += Passes(LOG_LEVEL_NOTICE) ? 1 : 0;
            }
        });
    }
    while (passed == 0) {  // nothing is attached yet, so all pass
        std::this_thread::yield();
    }
    for (int i = 0; i < 200; ++i) {
        StandaloneHost::AttachLogConfig();
        StandaloneHost::SetCategoryLevel(LOG_CATEG_DISCOVERY, i % 5);
        StandaloneHost::AddProcessLevel(getpid(), i % 5);
        StandaloneHost::ClearProcessLevels();
        StandaloneHost::DetachLogConfig();
    }
    done = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_TRUE(Passes(LOG_LEVEL_NOTICE));
}

TEST(LogEnumTest, LevelsAndCategoryHaveTexts) {
    EXPECT_STREQ(Enum2String(LOG_LEVEL_ERROR), "ERROR");
    EXPECT_STREQ(Enum2String(LOG_LEVEL_WARNING), "WARNING");
    EXPECT_STREQ(Enum2String(LOG_LEVEL_NOTICE), "NOTICE");
    EXPECT_STREQ(Enum2String(LOG_LEVEL_INFO), "INFO");
    EXPECT_STREQ(Enum2String(LOG_CATEG_DISCOVERY), "discovery");
}

TEST(LogEnumTest, OtherValuesAreUnknown) {
    EXPECT_STREQ(Enum2String(static_cast<LOG_LEVEL>(0)), "unknown");
    EXPECT_STREQ(Enum2String(static_cast<LOG_LEVEL>(5)), "unknown");
    EXPECT_STREQ(Enum2String(static_cast<LOG_CATEG>(8)), "unknown");
}

}  // namespace
