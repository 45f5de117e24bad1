#include "finder/broker/topics.h"

#include <gtest/gtest.h>

#include <string>

using namespace Lanscout;

namespace {

TEST(Topics, SiteNamesThatMqttOrAPageWouldMisreadAreRefused) {
    for (const char* name : {"berlin-07", "Zürich", "a.b_c", "7"}) {
        EXPECT_TRUE(IsSiteName(name)) << name;
    }
    for (const char* name :
         {"", "a/b", "a+b", "#", "$SYS", "a b", "a\nb", "a\x1b[1m", "a\"b", "a<b", "a\xff",
          "\xe2\x80\xae"
          "a",
          "a,b"}) {
        EXPECT_FALSE(IsSiteName(name)) << name;
    }
    EXPECT_TRUE(IsSiteName(std::string(kLongestSiteName, 'a')));
    EXPECT_FALSE(IsSiteName(std::string(kLongestSiteName + 1, 'a')));
    EXPECT_FALSE(IsSiteName(std::string_view("a\0b", 3)));
}

TEST(Topics, MacAddressLosesItsColons) {
    EXPECT_EQ(IdOfMac("00:1B:FF:01:02:03"), "001bff010203");
}

TEST(Topics, SafeIdLeavesWhatIsSafe) {
    EXPECT_EQ(SafeId("192.168.1.5"), "192.168.1.5");
    EXPECT_EQ(SafeId("a-b_c.D"), "a-b_c.D");
}

TEST(Topics, SafeIdsOfDifferentTextsStayDifferent) {
    const std::string slash = SafeId("a/b");
    const std::string plus = SafeId("a+b");
    EXPECT_TRUE(IsDeviceId(slash)) << slash;
    EXPECT_TRUE(IsDeviceId(plus)) << plus;
    EXPECT_NE(slash, plus);
    EXPECT_NE(slash, SafeId("a-b"));
    const std::string one = SafeId(std::string(200, 'x') + "1");
    EXPECT_TRUE(IsDeviceId(one)) << one;
    EXPECT_NE(one, SafeId(std::string(200, 'x') + "2"));
}

TEST(Topics, TopicIsTakenApart) {
    const auto device = ParseSiteTopic("lanscout/berlin-07/device/001bff010203");
    ASSERT_TRUE(device);
    EXPECT_EQ(device->site, "berlin-07");
    EXPECT_EQ(device->part, "device");
    EXPECT_EQ(device->id, "001bff010203");
    const auto round = ParseSiteTopic(SiteTopic("berlin-07", "round"));
    ASSERT_TRUE(round);
    EXPECT_EQ(round->part, "round");
    EXPECT_EQ(round->id, "");
}

TEST(Topics, ForeignTopicsAreNone) {
    for (const char* topic :
         {"", "lanscout", "lanscout/", "lanscout/a", "lanscout//status", "lanscout/a/",
          "other/a/status", "lanscout/a/status/x", "lanscout/a/device/", "lanscout/a/device/x/y",
          "lanscout/a b/status", "lanscout/a/command", "lanscout/a/device/x y",
          "xlanscout/a/status"}) {
        EXPECT_FALSE(ParseSiteTopic(topic)) << topic;
    }
}

}  // namespace
