#include "finder/source/probeschedule.h"

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <set>
#include <string>
#include <vector>

using namespace Lanscout;
using namespace std::chrono_literals;

namespace {

constexpr ProbeTime kStart{};

struct Sent {
    std::chrono::milliseconds when;
    ProbeSchedule::Due due;
};

// All Probes of a time, sent when they are due.
std::vector<Sent> SentWithin(std::size_t targets, std::chrono::milliseconds time) {
    ProbeSchedule schedule(targets, kStart);
    std::vector<Sent> sent;
    while (schedule.Next() < kStart + time) {
        const ProbeTime now = schedule.Next();
        while (const auto due = schedule.Take(now)) {
            sent.push_back(
                {std::chrono::duration_cast<std::chrono::milliseconds>(now - kStart), *due});
        }
    }
    return sent;
}

std::map<std::string, std::vector<Sent>> ById(const std::vector<Sent>& sent) {
    std::map<std::string, std::vector<Sent>> byId;
    for (const Sent& one : sent) {
        byId[one.due.messageId].push_back(one);
    }
    return byId;
}

}  // namespace

TEST(ProbeSchedule, BothTypesGoToEachTargetAtOnce) {
    ProbeSchedule schedule(3, kStart);
    std::set<std::pair<std::size_t, ProbeType>> first;
    while (const auto due = schedule.Take(kStart)) {
        EXPECT_TRUE(first.emplace(due->target, due->type).second);
    }
    EXPECT_EQ(first.size(), 6U);
    EXPECT_GE(schedule.Next(), kStart + 50ms);
}

TEST(ProbeSchedule, EachIdIsSentTwiceWithinAQuarterOfASecond) {
    for (const auto& [id, sent] : ById(SentWithin(5, 1s))) {
        ASSERT_EQ(sent.size(), 2U) << id;
        const auto gap = sent[1].when - sent[0].when;
        EXPECT_GE(gap, 50ms);
        EXPECT_LE(gap, 250ms);
        EXPECT_EQ(sent[0].due.target, sent[1].due.target);
        EXPECT_EQ(sent[0].due.type, sent[1].due.type);
    }
}

TEST(ProbeSchedule, DelaysDiffer) {
    std::set<std::chrono::milliseconds> gaps;
    for (const auto& [id, sent] : ById(SentWithin(20, 1s))) {
        gaps.insert(sent[1].when - sent[0].when);
    }
    EXPECT_GT(gaps.size(), 5U);
}

TEST(ProbeSchedule, RoundsComeEveryTwoSecondsWithNewIds) {
    const auto byId = ById(SentWithin(1, 5s));
    std::map<std::chrono::milliseconds, int> starts;
    for (const auto& [id, sent] : byId) {
        ++starts[sent.front().when];
    }
    EXPECT_EQ(starts,
              (std::map<std::chrono::milliseconds, int>{{0ms, 2}, {2000ms, 2}, {4000ms, 2}}));
}

TEST(ProbeSchedule, LateCallIsMadeUpForWithoutABurst) {
    ProbeSchedule schedule(1, kStart);
    while (schedule.Take(kStart)) {
    }
    int late = 0;
    while (schedule.Take(kStart + 3s)) {
        ++late;
    }
    EXPECT_EQ(late, 4);  // two copies, and the round of two seconds without its own
    EXPECT_GE(schedule.Next(), kStart + 3050ms);
}

TEST(ProbeSchedule, LateRoundDoesNotPutOffTheNextOnes) {
    ProbeSchedule schedule(1, kStart);
    while (schedule.Take(kStart + 40ms)) {
    }
    while (schedule.Take(kStart + 1s)) {
    }
    EXPECT_EQ(schedule.Next(), kStart + 2s);
}

TEST(ProbeSchedule, WithoutTargetsNothingIsEverDue) {
    ProbeSchedule schedule(0, kStart);
    EXPECT_FALSE(schedule.Take(kStart + 1h));
    EXPECT_EQ(schedule.Next(), ProbeTime::max());
}
