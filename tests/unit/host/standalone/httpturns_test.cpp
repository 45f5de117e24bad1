// Turns at hosts that answer, hang, and are many.
#include "host/standalone/httpturns.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Outcome = HttpTurns::Outcome;

class HttpTurnsTest : public ::testing::Test {
protected:
    static in_addr Host(std::uint32_t number) { return {.s_addr = number}; }

    void TimeOut(std::uint32_t host) {
        ASSERT_TRUE(m_turns.Begin(Host(host)));
        m_turns.End(Host(host), Outcome::TimedOut);
    }
    bool Answer(std::uint32_t host, Outcome outcome = Outcome::Answered) {
        const bool begun = m_turns.Begin(Host(host));
        if (begun) {
            m_turns.End(Host(host), outcome);
        }
        return begun;
    }
    void Fill(std::uint32_t host) {
        for (int i = 0; i < HttpTurns::kRequestsAtOnce; ++i) {
            ASSERT_TRUE(m_turns.Begin(Host(host)));
        }
    }

    HttpTurns::Clock::time_point m_now{seconds(1000)};
    HttpTurns m_turns{[this] { return m_now; }, milliseconds(0)};
};

TEST_F(HttpTurnsTest, HostThatAnswersIsAskedAgainAndAgain) {
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(Answer(1));
    }
}

TEST_F(HttpTurnsTest, HostThatTimedOutOnceIsAskedAgain) {
    TimeOut(1);
    EXPECT_TRUE(Answer(1));
}

TEST_F(HttpTurnsTest, HostThatTimedOutTwiceIsRefusedAndNoOther) {
    TimeOut(1);
    TimeOut(1);
    EXPECT_FALSE(Answer(1));
    EXPECT_TRUE(Answer(2));
}

TEST_F(HttpTurnsTest, AnswerMakesFormerTimeOutsForgotten) {
    TimeOut(1);
    EXPECT_TRUE(Answer(1));
    TimeOut(1);
    EXPECT_TRUE(Answer(1));
}

TEST_F(HttpTurnsTest, FailureOfAnotherKindNeitherCountsNorForgives) {
    TimeOut(1);
    EXPECT_TRUE(Answer(1, Outcome::Failed));
    EXPECT_TRUE(Answer(1, Outcome::Failed));
    TimeOut(1);
    EXPECT_FALSE(Answer(1));
}

TEST_F(HttpTurnsTest, RefusalEndsAfterAMinuteAndBeginsAnewWithTwo) {
    TimeOut(1);
    TimeOut(1);
    m_now += HttpTurns::kRefusedFor - milliseconds(1);
    EXPECT_FALSE(Answer(1));
    m_now += milliseconds(1);
    TimeOut(1);
    TimeOut(1);
    EXPECT_FALSE(Answer(1));
}

TEST_F(HttpTurnsTest, TimeOutsThatAreFarApartDoNotAddUp) {
    TimeOut(1);
    m_now += HttpTurns::kRefusedFor;
    TimeOut(1);
    EXPECT_TRUE(Answer(1));
}

TEST_F(HttpTurnsTest, HostHasThreeTurnsAtOnceAndOthersHaveTheirs) {
    Fill(1);
    EXPECT_FALSE(m_turns.Begin(Host(1)));
    EXPECT_TRUE(m_turns.Begin(Host(2)));
}

TEST_F(HttpTurnsTest, TurnThatEndsIsFreeForTheNext) {
    Fill(1);
    m_turns.End(Host(1), Outcome::Failed);
    EXPECT_TRUE(m_turns.Begin(Host(1)));
}

TEST_F(HttpTurnsTest, WaitsInVainCountAsTimeOuts) {
    Fill(1);
    EXPECT_FALSE(m_turns.Begin(Host(1)));
    EXPECT_FALSE(m_turns.Begin(Host(1)));
    m_turns.End(Host(1), Outcome::Failed);
    EXPECT_FALSE(m_turns.Begin(Host(1)));  // a turn is free, but the host is refused
}

TEST_F(HttpTurnsTest, LateAnswerEndsTheRefusal) {
    Fill(1);
    m_turns.Begin(Host(1));
    m_turns.Begin(Host(1));
    m_turns.End(Host(1), Outcome::Answered);
    TimeOut(1);  // the first one again
    EXPECT_TRUE(m_turns.Begin(Host(1)));
}

TEST_F(HttpTurnsTest, HostsAreBoundedAndThoseInUseAreKept) {
    Fill(1);
    TimeOut(2);
    TimeOut(2);
    for (std::uint32_t host = 3; host < 2 * HttpTurns::kMostHosts; ++host) {
        EXPECT_TRUE(Answer(host));
    }
    EXPECT_LE(m_turns.Remembered(), HttpTurns::kMostHosts);
    EXPECT_FALSE(m_turns.Begin(Host(1)));  // full still
    EXPECT_FALSE(Answer(2));               // refused still: the others said nothing
}

TEST_F(HttpTurnsTest, HostsThatAllTimedOutLeaveRoomForANewOne) {
    for (std::uint32_t host = 0; host < HttpTurns::kMostHosts + 10; ++host) {
        TimeOut(host);
        TimeOut(host);
    }
    EXPECT_LE(m_turns.Remembered(), HttpTurns::kMostHosts);
    EXPECT_TRUE(Answer(1'000'000));
}

TEST(HttpTurnsThreadsTest, WaiterGetsTheTurnThatEnds) {
    HttpTurns turns(HttpTurns::Clock::now, seconds(60));
    const in_addr host{.s_addr = 1};
    for (int i = 0; i < HttpTurns::kRequestsAtOnce; ++i) {
        ASSERT_TRUE(turns.Begin(host));
    }
    std::thread waiter([&] { EXPECT_TRUE(turns.Begin(host)); });
    turns.End(host, Outcome::Failed);
    waiter.join();
    SUCCEED();
}

TEST(HttpTurnsThreadsTest, WaitersOfAHostThatIsRefusedNowAreSentAway) {
    HttpTurns turns(HttpTurns::Clock::now, seconds(60));
    const in_addr host{.s_addr = 1};
    for (int i = 0; i < HttpTurns::kRequestsAtOnce; ++i) {
        ASSERT_TRUE(turns.Begin(host));
    }
    std::atomic<int> begun = 0;
    std::vector<std::thread> waiters;
    for (int i = 0; i < 5; ++i) {
        waiters.emplace_back([&] {
            if (turns.Begin(host)) {
                ++begun;
                turns.End(host, Outcome::TimedOut);
            }
        });
    }
    turns.End(host, Outcome::TimedOut);
    turns.End(host, Outcome::TimedOut);
    turns.End(host, Outcome::TimedOut);
    for (std::thread& waiter : waiters) {
        waiter.join();
    }
    EXPECT_LE(begun, 2);  // those that came between the first two ends
}

}  // namespace
