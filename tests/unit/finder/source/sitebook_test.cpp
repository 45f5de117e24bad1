#include "finder/source/sitebook.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "finder/machine/clock.h"

using namespace Lanscout;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr char kDevice[] = "lanscout/berlin/device/001bff010203";
constexpr char kPresent[] =
    R"({"ip":"10.0.0.1","mac":"00:1B:FF:01:02:03","state":"present","site":"paris",)"
    R"("lastSeen":"2026-11-21T07:00:00Z"})";
constexpr char kRound[] =
    R"({"finished":"2026-11-21T08:00:00Z","complete":true,"present":1,"gone":0})";

std::time_t At(const char* time) {
    return TimeFrom(time);
}

TEST(SiteBook, DeviceIsOfTheSiteOfItsTopicWhateverItSays) {
    SiteBook book;
    const auto device = book.Take(kDevice, kPresent);
    ASSERT_TRUE(device);
    EXPECT_EQ(device->ip, "10.0.0.1");
    EXPECT_EQ(device->site, "berlin");
    EXPECT_THAT(book.Sites(), ElementsAre("berlin"));
}

TEST(SiteBook, DeviceThatIsThereWasSeenInTheLastRound) {
    SiteBook book;
    book.Take("lanscout/berlin/round", kRound);
    EXPECT_EQ(book.Take(kDevice, kPresent)->lastSeen, "2026-11-21T08:00:00Z");
}

TEST(SiteBook, GoneDeviceIsCountedAndNotListed) {
    SiteBook book;
    book.Take("lanscout/berlin/round",
              R"({"finished":"2026-11-21T08:00:00Z","present":0,"gone":1})");
    EXPECT_FALSE(book.IsComplete());
    EXPECT_FALSE(book.Take(kDevice, R"({"ip":"10.0.0.1","state":"gone"})"));
    EXPECT_TRUE(book.IsComplete());
}

TEST(SiteBook, ForgottenDeviceIsNoLongerCounted) {
    SiteBook book;
    book.Take("lanscout/berlin/round", kRound);
    book.Take(kDevice, kPresent);
    EXPECT_TRUE(book.IsComplete());
    EXPECT_FALSE(book.Take(kDevice, ""));
    EXPECT_FALSE(book.IsComplete());
}

TEST(SiteBook, HostilePayloadsAreCountedAndNeverListed) {
    SiteBook book;
    for (const std::string& payload :
         {std::string("{"), std::string("[]"), std::string("null"), std::string("{}"),
          std::string(R"({"ip":"10.0.0.1"})"), std::string(R"({"ip":"10.0.0.1","state":"maybe"})"),
          std::string(R"({"ip":"javascript:1","state":"present"})"),
          std::string(R"({"ip":["10.0.0.1"],"state":"present"})"),
          R"({"state":"present","ip":"10.0.0.1","x":)" + std::string(20000, '[') +
              std::string(20000, ']') + "}",
          R"({"state":"present","ip":"10.0.0.1","name":")" +
              std::string(SiteBook::kLongestPayload, 'a') + "\"}"}) {
        EXPECT_FALSE(book.Take(kDevice, payload)) << payload.substr(0, 60);
    }
    EXPECT_THAT(book.Problems(0), ElementsAre(HasSubstr("10 messages that cannot be read")));
}

TEST(SiteBook, ForeignTopicsMakeNoSite) {
    SiteBook book;
    EXPECT_FALSE(book.Take("lanscout/a b/device/x", kPresent));
    EXPECT_FALSE(book.Take("other/berlin/device/x", kPresent));
    EXPECT_FALSE(book.Take("lanscout/berlin/event", kPresent));
    EXPECT_FALSE(book.Take("lanscout/berlin/device/x/y", kPresent));
    EXPECT_THAT(book.Sites(), IsEmpty());
}

TEST(SiteBook, OneSiteCannotFillTheList) {
    SiteBook book;
    std::size_t taken = 0;
    for (std::size_t i = 0; i < SiteBook::kMostDevicesOfSite + 10; ++i) {
        taken += book.Take("lanscout/evil/device/" + std::to_string(i), kPresent) ? 1U : 0U;
    }
    EXPECT_EQ(taken, SiteBook::kMostDevicesOfSite);
    EXPECT_TRUE(book.Take(kDevice, kPresent));
}

TEST(SiteBook, SitesAreBounded) {
    SiteBook book;
    for (std::size_t i = 0; i < SiteBook::kMostSites + 1; ++i) {
        book.Take("lanscout/s" + std::to_string(i) + "/status", "online");
    }
    EXPECT_EQ(book.Sites().size(), SiteBook::kMostSites);
    EXPECT_THAT(book.Problems(0), ElementsAre(HasSubstr("more than")));
}

TEST(SiteBook, OfflineSiteIsAProblem) {
    SiteBook book;
    book.Take("lanscout/berlin/status", "online");
    book.Take("lanscout/berlin/round", kRound);
    book.Take(kDevice, kPresent);
    EXPECT_THAT(book.Problems(At("2026-11-21T08:01:00Z")), IsEmpty());
    book.Take("lanscout/berlin/status", "offline");
    EXPECT_THAT(
        book.Problems(At("2026-11-21T08:01:00Z")),
        ElementsAre("site berlin is offline; its last round ended at 2026-11-21T08:00:00Z"));
}

TEST(SiteBook, SiteIsLateAfterThreeOfItsIntervals) {
    SiteBook book;
    book.Take("lanscout/berlin/status", "online");
    book.Take("lanscout/berlin/info", R"({"interval":100})");
    book.Take("lanscout/berlin/round", kRound);
    book.Take(kDevice, kPresent);
    EXPECT_THAT(book.Problems(At("2026-11-21T08:05:00Z")), IsEmpty());
    EXPECT_THAT(book.Problems(At("2026-11-21T08:05:01Z")),
                ElementsAre(HasSubstr("berlin is late")));
}

TEST(SiteBook, DevicesThatDidNotComeAreAProblem) {
    SiteBook book;
    book.Take("lanscout/berlin/round",
              R"({"finished":"2026-11-21T08:00:00Z","present":3,"gone":1})");
    book.Take(kDevice, kPresent);
    EXPECT_THAT(book.Problems(At("2026-11-21T08:00:00Z")),
                ElementsAre(HasSubstr("has 4 devices, and 1 of them")));
}

TEST(SiteBook, IncompleteRoundIsAProblem) {
    SiteBook book;
    book.Take("lanscout/berlin/round", R"({"finished":"2026-11-21T08:00:00Z","complete":false})");
    EXPECT_THAT(book.Problems(At("2026-11-21T08:00:00Z")),
                ElementsAre(HasSubstr("could not search everywhere")));
}

TEST(SiteBook, NonsenseInARoundIsNotBelieved) {
    SiteBook book;
    for (const char* round : {R"({"finished":"yesterday"})", R"({"finished":7,"present":-1})",
                              R"({"finished":"2026-11-21T08:00:00Z","present":1e300})",
                              R"({"finished":"2026-11-21T08:00:00Zx"})", "x", "[[]]"}) {
        book.Take("lanscout/berlin/round", round);
        EXPECT_TRUE(book.IsComplete()) << round;
    }
    book.Take("lanscout/berlin/round", R"({"present":18446744073709551615})");
    book.Take("lanscout/berlin/info", R"({"interval":-5})");
    EXPECT_LE(book.Problems(0).size(), 1U);
}

}  // namespace
