#include "finder/source/replymemory.h"

#include <gtest/gtest.h>

#include <string>

using namespace Lanscout;

namespace {

std::string Reply(const std::string& header, const std::string& body) {
    return "<e:Envelope><e:Header>" + header + "</e:Header><e:Body>" + body +
           "</e:Body></e:Envelope>";
}

}  // namespace

TEST(ReplyMemory, SameWordsOfOneSenderAreNoNews) {
    ReplyMemory memory;
    EXPECT_TRUE(memory.IsNews("a", Reply("1", "x")));
    EXPECT_FALSE(memory.IsNews("a", Reply("1", "x")));
}

TEST(ReplyMemory, AnotherMessageIdIsNoNews) {
    ReplyMemory memory;
    EXPECT_TRUE(memory.IsNews("a", Reply("<id>1</id>", "x")));
    EXPECT_FALSE(memory.IsNews("a", Reply("<id>22</id>", "x")));
}

TEST(ReplyMemory, OtherWordsAreNews) {
    ReplyMemory memory;
    EXPECT_TRUE(memory.IsNews("a", Reply("", "x")));
    EXPECT_TRUE(memory.IsNews("a", Reply("", "y")));
    EXPECT_TRUE(memory.IsNews("a", "z" + Reply("", "x")));  // namespaces stand in front
    EXPECT_TRUE(memory.IsNews("a", "no reply"));
    EXPECT_TRUE(memory.IsNews("a", "no reply either"));
}

TEST(ReplyMemory, SendersAreApart) {
    ReplyMemory memory;
    EXPECT_TRUE(memory.IsNews("a", Reply("", "x")));
    EXPECT_TRUE(memory.IsNews("b", Reply("", "x")));
}

TEST(ReplyMemory, OneSenderIsHeardABoundedNumberOfTimes) {
    ReplyMemory memory;
    std::size_t heard = 0;
    for (std::size_t i = 0; i < 2 * ReplyMemory::kMostRepliesOfOne; ++i) {
        heard += memory.IsNews("a", std::to_string(i)) ? 1 : 0;
    }
    EXPECT_EQ(heard, ReplyMemory::kMostRepliesOfOne);
    EXPECT_TRUE(memory.IsNews("b", "0"));
}

TEST(ReplyMemory, SendersAreBounded) {
    ReplyMemory memory;
    for (std::size_t i = 0; i < ReplyMemory::kMostSenders; ++i) {
        ASSERT_TRUE(memory.IsNews(std::to_string(i), "x"));
    }
    EXPECT_FALSE(memory.IsNews("one more", "x"));
    EXPECT_TRUE(memory.IsNews("0", "y"));
}

TEST(ReplyMemory, RepliesAreBoundedInAll) {
    ReplyMemory memory;
    std::size_t heard = 0;
    for (std::size_t i = 0; i < 2 * ReplyMemory::kMostReplies; ++i) {
        heard += memory.IsNews(std::to_string(i / 200), std::to_string(i)) ? 1 : 0;
    }
    EXPECT_EQ(heard, ReplyMemory::kMostReplies);
}

TEST(ReplyMemory, SenderIsListedOnce) {
    ReplyMemory memory;
    memory.IsNews("a", "x");
    memory.IsNews("b", "x");
    EXPECT_TRUE(memory.NoteListed("a"));
    EXPECT_FALSE(memory.NoteListed("a"));
    EXPECT_TRUE(memory.NoteListed("b"));
}
