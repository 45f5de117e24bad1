// The enum texts: one map per process for each enum, built on first use.
#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <vector>

#include "log/dbglog.h"
#include "tests/unit/support/enum2stringother.h"

// A host of this test's own, which counts how often its maps are built.
ZelDbgLogCfg* g_pDbgLogCfg = nullptr;
int g_DbgLogPid = 0;

namespace {

std::atomic<int> nLevelMaps = 0;
std::atomic<int> nCategoryMaps = 0;

}  // namespace

template <>
ZelEnum2StrMap<LOG_LEVEL>::ZelEnum2StrMap() {
    if (nLevelMaps++ == 0) {
        throw std::runtime_error("the first construction fails");
    }
    (*this)[LOG_LEVEL_ERROR] = "one";
    (*this)[LOG_LEVEL_INFO] = "four";
}

template <>
ZelEnum2StrMap<LOG_CATEG>::ZelEnum2StrMap() {
    ++nCategoryMaps;
    (*this)[LOG_CATEG_DISCOVERY] = "seven";
}

void ZelPrintf(LOG_TYPE, const char*, const char*, const char*, int, const char*, const char*,
               ...) {}

namespace {

// One process, one order: what this test is about happens once per process.
TEST(Enum2String, MapIsBuiltOncePerProcessOnFirstUse) {
    EXPECT_EQ(nLevelMaps, 0);
    EXPECT_THROW(Enum2String(LOG_LEVEL_ERROR), std::runtime_error);
    EXPECT_STREQ(Enum2String(LOG_LEVEL_ERROR), "one");  // a failed construction is tried again
    EXPECT_EQ(nLevelMaps, 2);
    EXPECT_STREQ(Enum2String(LOG_LEVEL_INFO), "four");
    EXPECT_STREQ(Enum2String(static_cast<LOG_LEVEL>(3)), "unknown");
    EXPECT_STREQ(Enum2String(static_cast<LOG_LEVEL>(-1)), "unknown");
    EXPECT_EQ(Enum2String(LOG_LEVEL_ERROR), Enum2String(LOG_LEVEL_ERROR));

    // Another shared object that uses the template has the same map.
    EXPECT_STREQ(LevelTextOfOtherObject(1), "one");
    EXPECT_EQ(LevelTextOfOtherObject(1), Enum2String(LOG_LEVEL_ERROR));
    EXPECT_EQ(nLevelMaps, 2);
    EXPECT_STREQ(CategoryTextOfOtherObject(7), "seven");  // here the other object comes first
    EXPECT_STREQ(Enum2String(LOG_CATEG_DISCOVERY), "seven");
    EXPECT_STREQ(Enum2String(static_cast<LOG_CATEG>(6)), "unknown");
    EXPECT_EQ(nCategoryMaps, 1);

    // Look-ups on several threads need no lock.
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] { EXPECT_STREQ(Enum2String(LOG_LEVEL_ERROR), "one"); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
