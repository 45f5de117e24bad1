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

TEST_F(LogConfigTest, AttachingAgainResetsLevels) {
    StandaloneHost::AttachLogConfig();
    StandaloneHost::SetCategoryLevel(LOG_CATEG_DISCOVERY, 4);
    StandaloneHost::AttachLogConfig();
    EXPECT_FALSE(Passes(LOG_LEVEL_ERROR));
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

TEST_F(LogConfigTest, ForkedChildGoesByItsOwnProcessId) {
    // A record with one entry, which raises this process alone.
    struct {
        ZelDbgLogCfg config;
        ZelDbgLogProc process;
    } record{};
    record.config.nProcCount = 1;
    record.process = {static_cast<std::int32_t>(getpid()), 4};
    g_pDbgLogCfg = &record.config;
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
