#include "tools/lanscout/publish/backoff.h"

#include <gtest/gtest.h>

#include <set>

using namespace Lanscout;
using std::chrono::milliseconds;

namespace {

TEST(Backoff, PausesGrowToAMinute) {
    for (std::uint32_t seed = 0; seed < 50; ++seed) {
        Backoff backoff(seed);
        EXPECT_LE(backoff.Next(), milliseconds(2000));
        milliseconds within(4000);
        for (int i = 0; i < 8; ++i) {
            const milliseconds pause = backoff.Next();
            EXPECT_GE(pause, within / 2);
            EXPECT_LE(pause, within);
            within = std::min(2 * within, milliseconds(60000));
        }
    }
}

TEST(Backoff, ManyDoNotComeBackAtOnce) {
    std::set<milliseconds::rep> tenths;
    for (std::uint32_t seed = 0; seed < 300; ++seed) {
        tenths.insert(Backoff(seed).Next().count() / 100);
    }
    EXPECT_EQ(tenths.size(), 20U) << "of the 20 tenths of the first two seconds";
}

TEST(Backoff, StartsAgainAfterSuccess) {
    Backoff backoff(1);
    for (int i = 0; i < 10; ++i) {
        backoff.Next();
    }
    backoff.Reset();
    EXPECT_LE(backoff.Next(), milliseconds(2000));
}

}  // namespace
