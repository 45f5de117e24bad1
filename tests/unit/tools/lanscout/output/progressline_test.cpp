#include "tools/lanscout/output/progressline.h"

#include <gtest/gtest.h>

using namespace Lanscout;

TEST(ProgressLine, BarTimeAndCountAreThere) {
    EXPECT_EQ(ProgressLine({4, 8, 2}, 12, 40), "[########---------] 4 s left, 12 devices");
}

TEST(ProgressLine, TimeThatIsUpIsNotNegative) {
    EXPECT_EQ(ProgressLine({9, 8, 1}, 3, 60),
              "[##################] waiting for the last answers, 3 devices");
}

TEST(ProgressLine, NeverWiderThanTheTerminal) {
    for (int width = 0; width < 120; ++width) {
        ASSERT_LE(ProgressLine({1, 8, 1}, 1234, width).size(), static_cast<std::size_t>(width));
        ASSERT_LE(ProgressLine({9, 8, 1}, 1234, width).size(), static_cast<std::size_t>(width));
    }
}
