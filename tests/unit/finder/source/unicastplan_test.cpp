#include "finder/source/unicastplan.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <map>
#include <vector>

using namespace Lanscout;
using namespace std::chrono_literals;

namespace {

constexpr ProbeTime kStart{};
constexpr std::uint32_t kFirst = 0x0A140001;  // 10.20.0.1

std::vector<AddressRange> Hosts(std::uint32_t count) {
    return {{kFirst, kFirst + count - 1}};
}

struct Sent {
    std::chrono::milliseconds when;
    UnicastPlan::Due due;
};

// Everything until the end of the plan or that time, each sent when it is due.
std::vector<Sent> SentOf(UnicastPlan& plan, std::chrono::seconds time = 60s) {
    std::vector<Sent> sent;
    while (plan.Next() < kStart + time) {
        const ProbeTime now = plan.Next();
        while (const auto due = plan.Take(now)) {
            sent.push_back(
                {std::chrono::duration_cast<std::chrono::milliseconds>(now - kStart), *due});
        }
    }
    return sent;
}

std::map<std::uint32_t, int> CountsOf(const std::vector<Sent>& sent) {
    std::map<std::uint32_t, int> counts;
    for (const Sent& one : sent) {
        ++counts[one.due.address];
    }
    return counts;
}

}  // namespace

TEST(UnicastPlan, SilentAddressIsTriedThreeTimesASecondApart) {
    UnicastPlan plan(Hosts(1), {}, 500, kStart);
    const auto sent = SentOf(plan);
    ASSERT_EQ(sent.size(), 5U);
    const std::array kTypes{ProbeType::NetworkVideoTransmitter, ProbeType::NetworkVideoTransmitter,
                            ProbeType::Device, ProbeType::NetworkVideoTransmitter,
                            ProbeType::Device};
    const std::array<std::chrono::milliseconds, 5> kTimes{0ms, 1000ms, 1002ms, 2000ms, 2002ms};
    for (std::size_t i = 0; i < sent.size(); ++i) {
        EXPECT_EQ(sent[i].due.type, kTypes[i]) << i;
        EXPECT_EQ(sent[i].when, kTimes[i]) << i;
    }
}

TEST(UnicastPlan, RateIsKept) {
    UnicastPlan plan(Hosts(1000), {}, 500, kStart);
    std::map<long, int> aSecond;
    for (const Sent& one : SentOf(plan)) {
        ++aSecond[one.when / 1s];
    }
    for (const auto& [second, count] : aSecond) {
        EXPECT_LE(count, 501) << second;
    }
    EXPECT_EQ(aSecond[0], 500);
}

TEST(UnicastPlan, WhoHasAnsweredIsNotAskedAgain) {
    UnicastPlan plan(Hosts(10), {}, 500, kStart);
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(plan.Take(kStart + i * 2ms));
    }
    for (std::uint32_t i = 0; i < 9; ++i) {
        EXPECT_TRUE(plan.NoteAnswer(kFirst + i));
    }
    EXPECT_EQ(CountsOf(SentOf(plan)), (std::map<std::uint32_t, int>{{kFirst + 9, 4}}));
}

TEST(UnicastPlan, EndsWhenAllHaveAnswered) {
    UnicastPlan plan(Hosts(2), {}, 500, kStart);
    plan.NoteAnswer(kFirst);
    plan.NoteAnswer(kFirst + 1);
    EXPECT_FALSE(plan.Take(kStart + 1h));
    EXPECT_EQ(plan.Next(), ProbeTime::max());
}

TEST(UnicastPlan, AnswerBetweenTheProbesOfATryEndsIt) {
    UnicastPlan plan(Hosts(1), {}, 500, kStart);
    ASSERT_TRUE(plan.Take(kStart));
    ASSERT_TRUE(plan.Take(kStart + 1s));
    plan.NoteAnswer(kFirst);
    EXPECT_FALSE(plan.Take(kStart + 1h));
}

TEST(UnicastPlan, AnswersOfStrangersCountForNobody) {
    UnicastPlan plan(Hosts(2), {}, 500, kStart);
    EXPECT_FALSE(plan.NoteAnswer(kFirst + 2));
}

TEST(UnicastPlan, OverlappingRangesAskOnce) {
    const std::vector<AddressRange> ranges{{kFirst, kFirst + 5}, {kFirst + 3, kFirst + 7}};
    EXPECT_EQ(UnicastPlan(ranges, {}, 500, kStart).AddressCount(), 8U);
}

TEST(UnicastPlan, AddressesAreBounded) {
    const std::vector<AddressRange> ranges{{0x0A000000, 0x0B000000}};
    EXPECT_EQ(UnicastPlan(ranges, {}, 500, kStart).AddressCount(), 65536U);
}

TEST(UnicastPlan, LastAddressOfAllDoesNotWrapAround) {
    const std::vector<AddressRange> ranges{{0xFFFFFFFE, 0xFFFFFFFF}};
    EXPECT_EQ(UnicastPlan(ranges, {}, 500, kStart).AddressCount(), 2U);
}

TEST(UnicastPlan, OwnSubnetsAreAskedSlowlyAndOnlyForHosts) {
    const std::array kOurs{Subnet{0x0A140000, 0xFFFFFF00}};  // 10.20.0.0/24
    const std::vector<AddressRange> ranges{{0x0A140000, 0x0A1400FF}};
    UnicastPlan plan(ranges, kOurs, 5000, kStart);
    EXPECT_EQ(plan.AddressCount(), 254U);
    int first = 0;
    while (plan.Next() < kStart + 1s) {
        first += plan.Take(plan.Next()) ? 1 : 0;
    }
    EXPECT_EQ(first, 250);
}

TEST(UnicastPlan, LateCallMakesUpForLittle) {
    UnicastPlan plan(Hosts(10000), {}, 1000, kStart);
    int burst = 0;
    while (plan.Take(kStart + 2s)) {
        ++burst;
    }
    EXPECT_LE(burst, 52);
    EXPECT_GE(burst, 50);
}

TEST(UnicastPlan, NothingToAskIsNeverDue) {
    UnicastPlan plan({}, {}, 500, kStart);
    EXPECT_FALSE(plan.Take(kStart + 1h));
    EXPECT_EQ(plan.Next(), ProbeTime::max());
}
