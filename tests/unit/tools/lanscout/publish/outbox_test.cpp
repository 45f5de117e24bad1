#include "tools/lanscout/publish/outbox.h"

#include <gtest/gtest.h>

using namespace Lanscout;

namespace {

Letter Kept(const std::string& topic, const std::string& payload) {
    return {topic, payload, true, ""};
}

Letter Event(const std::string& subject, const std::string& payload) {
    return {"e", payload, false, subject};
}

// All that waits, as "topic=payload", taken out.
std::vector<std::string> TakeAll(Outbox& outbox, bool delivered) {
    std::vector<std::string> all;
    while (const auto next = outbox.Next()) {
        all.push_back(next->letter.topic + "=" + next->letter.payload);
        if (delivered) {
            outbox.Delivered(*next);
        }
    }
    return all;
}

using All = std::vector<std::string>;

TEST(Outbox, LettersLeaveInTheirOrderAndOnce) {
    Outbox outbox;
    outbox.Put(Kept("b", "1"));
    outbox.Put(Kept("a", "2"));
    EXPECT_EQ(outbox.Waiting(), 2U);
    EXPECT_EQ(TakeAll(outbox, true), (All{"b=1", "a=2"}));
    EXPECT_EQ(outbox.Waiting(), 0U);
    EXPECT_FALSE(outbox.Next());
}

TEST(Outbox, WhileTheBrokerIsAwayTheNewestOfATopicWaits) {
    Outbox outbox;
    for (int i = 0; i < 1000; ++i) {
        outbox.Put(Kept("a", std::to_string(i)));
        outbox.Put(Kept("b", std::to_string(i)));
    }
    EXPECT_EQ(outbox.Waiting(), 2U);
    EXPECT_EQ(TakeAll(outbox, true), (All{"a=999", "b=999"}));
}

TEST(Outbox, NewLetterOfATopicThatIsUnderwayIsSentToo) {
    Outbox outbox;
    outbox.Put(Kept("a", "1"));
    const auto first = outbox.Next();
    ASSERT_TRUE(first);
    outbox.Put(Kept("a", "2"));
    outbox.Delivered(*first);
    EXPECT_EQ(TakeAll(outbox, true), (All{"a=2"}));
}

TEST(Outbox, AfterAReconnectAllThatIsKeptIsSentAgain) {
    Outbox outbox;
    outbox.Put(Kept("a", "1"));
    outbox.Put(Kept("b", "1"));
    TakeAll(outbox, true);
    outbox.Put(Kept("b", "2"));
    outbox.StartAgain();
    EXPECT_EQ(outbox.Waiting(), 2U) << "none twice";
    EXPECT_EQ(TakeAll(outbox, true), (All{"b=2", "a=1"}));
}

TEST(Outbox, EmptiedTopicIsEmptiedAgainAfterAReconnect) {
    Outbox outbox;
    outbox.Put(Kept("a", "1"));
    outbox.Put(Kept("a", ""));
    EXPECT_EQ(TakeAll(outbox, true), (All{"a="}));
    outbox.StartAgain();
    EXPECT_EQ(TakeAll(outbox, true), (All{"a="}));
}

TEST(Outbox, EmptiedTopicsAreBounded) {
    Outbox outbox;
    outbox.Put(Kept("kept", "1"));
    for (std::size_t i = 0; i < Outbox::kMostEmptied + 500; ++i) {
        outbox.Put(Kept("t" + std::to_string(i), ""));
    }
    TakeAll(outbox, true);
    outbox.StartAgain();
    EXPECT_EQ(outbox.Waiting(), Outbox::kMostEmptied + 1);
}

TEST(Outbox, EmptiedTopicThatIsFilledAgainIsNotForgotten) {
    Outbox outbox;
    outbox.Put(Kept("a", ""));
    outbox.Put(Kept("a", "back"));
    for (std::size_t i = 0; i < Outbox::kMostEmptied; ++i) {
        outbox.Put(Kept("t" + std::to_string(i), ""));
    }
    outbox.StartAgain();
    EXPECT_EQ(TakeAll(outbox, true).front(), "a=back");
}

TEST(Outbox, DeliveredEventIsNotSentAgainAndAnUndeliveredOneIs) {
    Outbox outbox;
    outbox.Put(Event("one", "1"));
    outbox.Put(Event("two", "2"));
    const auto one = outbox.Next();
    const auto two = outbox.Next();
    ASSERT_TRUE(one && two);
    outbox.Delivered(*one);
    outbox.StartAgain();
    EXPECT_EQ(TakeAll(outbox, true), (All{"e=2"}));
    outbox.StartAgain();
    EXPECT_EQ(TakeAll(outbox, true), All{});
}

TEST(Outbox, NewEventOfADeviceIsKeptWhenTheFormerOneArrives) {
    Outbox outbox;
    outbox.Put(Event("one", "1"));
    const auto first = outbox.Next();
    ASSERT_TRUE(first);
    outbox.Put(Event("one", "2"));
    outbox.Delivered(*first);
    EXPECT_EQ(TakeAll(outbox, true), (All{"e=2"}));
}

TEST(Outbox, OneEventADeviceWaits) {
    Outbox outbox;
    outbox.Put(Event("one", "gone"));
    outbox.Put(Event("two", "gone"));
    outbox.Put(Event("one", "returned"));
    EXPECT_EQ(TakeAll(outbox, true), (All{"e=returned", "e=gone"}));
}

TEST(Letter, PassesThroughALine) {
    const Letter letter{"a/b", "{\"x\":\"\\n\"}\n\xC3\xA4", true, "s"};
    const std::string line = EncodeLetter(letter);
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    EXPECT_EQ(DecodeLetter(line), letter);
    for (const char* wrong : {"", "[]", "{}", "[1,2,3,4]", R"(["a","b",1,"c"])", "[\"a\""}) {
        EXPECT_FALSE(DecodeLetter(wrong)) << wrong;
    }
}

}  // namespace
