#include "finder/source/neighbourasker.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

using namespace Lanscout;
using namespace std::chrono_literals;

namespace {

constexpr NeighbourAsker::Time kStart{};

std::string Address(int number) {
    return "10.0." + std::to_string(number / 250) + "." + std::to_string(number % 250 + 1);
}

// Whom it asks within that time, called whenever it wants to be.
std::vector<std::string> AskedWithin(NeighbourAsker& asker, std::chrono::milliseconds time) {
    std::vector<std::string> asked;
    while (asker.Next() < kStart + time) {
        const auto now = std::max(asker.Next(), kStart);
        while (const auto due = asker.Take(now)) {
            asked.push_back(due->address);
        }
    }
    return asked;
}

}  // namespace

TEST(NeighbourAsker, WhoIsNotKnownIsAskedOnce) {
    NeighbourAsker asker(kStart, 512);
    asker.NoteHeard(3, "10.0.0.1");
    asker.NoteHeard(3, "10.0.0.1");
    EXPECT_FALSE(asker.Take(kStart + 100ms));  // it may still ask for us
    const auto due = asker.Take(kStart + 1s);
    ASSERT_TRUE(due);
    EXPECT_EQ(due->post, 3U);
    EXPECT_EQ(due->address, "10.0.0.1");
    asker.NoteHeard(3, "10.0.0.1");
    EXPECT_FALSE(asker.Take(kStart + 2s));
    EXPECT_EQ(asker.Next(), NeighbourAsker::Time::max());
}

TEST(NeighbourAsker, WhoIsKnownIsNotAsked) {
    NeighbourAsker asker(kStart, 512);
    asker.NoteKnown("10.0.0.1");
    asker.NoteHeard(0, "10.0.0.1");
    asker.NoteHeard(0, "10.0.0.2");
    asker.NoteKnown("10.0.0.2");  // meanwhile
    EXPECT_FALSE(asker.Take(kStart + 1s));
}

TEST(NeighbourAsker, AThousandAreAskedWithinFiveSeconds) {
    NeighbourAsker asker(kStart, 512);
    for (int i = 0; i < 1000; ++i) {
        asker.NoteHeard(0, Address(i));
    }
    EXPECT_EQ(AskedWithin(asker, 4500ms).size(), 1000U);
}

TEST(NeighbourAsker, FullTableIsNotOverfilled) {
    NeighbourAsker asker(kStart, 50);
    for (int i = 0; i < 1000; ++i) {
        asker.NoteHeard(0, Address(i));
    }
    const auto asked = AskedWithin(asker, 5s);
    EXPECT_EQ(asked.size(), 100U);
    // Whose entry is complete still takes its room.
    for (const std::string& address : asked) {
        asker.NoteKnown(address);
    }
    EXPECT_TRUE(AskedWithin(asker, 6s).empty());
}

TEST(NeighbourAsker, WhoWasAskedAndIsKnownTakesOneEntry) {
    NeighbourAsker asker(kStart, 50);
    for (int i = 0; i < 60; ++i) {
        asker.NoteHeard(0, Address(i));
    }
    for (const std::string& address : AskedWithin(asker, 3s)) {
        asker.NoteKnown(address);
    }
    for (int i = 60; i < 90; ++i) {
        asker.NoteHeard(0, Address(i));
    }
    EXPECT_EQ(AskedWithin(asker, 6s).size(), 30U);
}

TEST(NeighbourAsker, ItIsSlowerWhereTheKernelCleansUp) {
    NeighbourAsker few(kStart, 512);
    NeighbourAsker many(kStart, 512);
    for (int i = 0; i < 600; ++i) {
        many.NoteKnown("10.9." + Address(i).substr(5));
    }
    for (int i = 0; i < 300; ++i) {
        few.NoteHeard(0, Address(i));
        many.NoteHeard(0, Address(i));
    }
    EXPECT_GT(AskedWithin(few, 1s).size(), AskedWithin(many, 1s).size() * 3 / 2);
}

TEST(NeighbourAsker, ItsListIsBounded) {
    NeighbourAsker asker(kStart, 1000000);
    for (int i = 0; i < 20000; ++i) {
        asker.NoteHeard(0, Address(i));
    }
    EXPECT_LE(AskedWithin(asker, 100s).size(), 4096U);
}

TEST(NeighbourTableRoom, IsMoreThanNothing) {
    EXPECT_GT(NeighbourTableRoom(), 0U);
}
