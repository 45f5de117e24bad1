#include <gtest/gtest.h>

namespace {
// Counted before any constructor of this program runs, so it must need none.
constinit int g_setUps = 0;
constinit bool g_bInMain = false;
}  // namespace

extern "C" {
void __real_xmlInitParser();
void __wrap_xmlInitParser() {
    g_setUps += g_bInMain ? 0 : 1;
    __real_xmlInitParser();
}
}

TEST(Libxml2SetupTest, ParserIsSetUpOnceBeforeMain) {
    EXPECT_EQ(g_setUps, 1);
}

int main(int argc, char** argv) {
    g_bInMain = true;
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
