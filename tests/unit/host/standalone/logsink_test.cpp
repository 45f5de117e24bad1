#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "control/standalonehost.h"
#include "tests/unit/support/capturedstderr.h"

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::SizeIs;

void Print(const char* message) {
    ZelPrintf(LOG_TYPE_DEFAULT, "discovery", "NOTICE", "utils/file", 42, "Function", "%s\n",
              message);
}

struct Lines {
    std::mutex mutex;
    std::vector<std::string> vecLine;
};

void Collect(const StandaloneHost::LogRecord& record, void* cookie) {
    auto& lines = *static_cast<Lines*>(cookie);
    const std::lock_guard lock(lines.mutex);
    lines.vecLine.emplace_back(record.line);
}

// A record's texts, kept beyond the call.
struct Kept {
    LOG_LEVEL level = LOG_LEVEL_ERROR;
    std::string category, function, format, text, line;
};

void Keep(const StandaloneHost::LogRecord& record, void* cookie) {
    *static_cast<Kept*>(cookie) = {record.level,
                                   std::string(record.category),
                                   std::string(record.function),
                                   std::string(record.format),
                                   std::string(record.text),
                                   std::string(record.line)};
}

class LogSinkTest : public ::testing::Test {
protected:
    void TearDown() override { StandaloneHost::SetLogSink(nullptr, nullptr); }
};

TEST_F(LogSinkTest, SinkGetsTheWholeLineAndStandardErrorNothing) {
    CapturedStderr captured;
    Lines lines;
    StandaloneHost::SetLogSink(&Collect, &lines);
    Print("to the sink");
    EXPECT_THAT(lines.vecLine, ElementsAre(EndsWith(" utils/file:42 Function: to the sink\n")));
    EXPECT_THAT(captured.Text(), IsEmpty());
}

TEST_F(LogSinkTest, SinkGetsNoControlCharacterButTheLineBreak) {
    Lines lines;
    StandaloneHost::SetLogSink(&Collect, &lines);
    Print("\x1b[31m\n\x9b");
    EXPECT_THAT(lines.vecLine, ElementsAre(EndsWith(": \\x1b[31m\\n\\x9b\n")));
}

TEST_F(LogSinkTest, RecordHasThePartsOfTheCall) {
    Kept kept;
    StandaloneHost::SetLogSink(&Keep, &kept);
    Print("a message");
    EXPECT_EQ(kept.level, LOG_LEVEL_NOTICE);
    EXPECT_EQ(kept.category, "discovery");
    EXPECT_EQ(kept.function, "Function");
    EXPECT_EQ(kept.format, "%s\n");
    EXPECT_EQ(kept.text, "a message");
}

TEST_F(LogSinkTest, RecordOfEachLevelHasItsNumber) {
    Kept kept;
    StandaloneHost::SetLogSink(&Keep, &kept);
    for (const auto& [level, text] : ZelEnum2StrMap<LOG_LEVEL>()) {
        ZelPrintf(LOG_TYPE_DEFAULT, "c", text, "f", 1, "F", "x\n");
        EXPECT_EQ(kept.level, level) << text;
    }
}

TEST_F(LogSinkTest, RecordOfAnUnknownLevelHasZero) {
    Kept kept;
    StandaloneHost::SetLogSink(&Keep, &kept);
    ZelPrintf(LOG_TYPE_DEFAULT, "c", "unknown", "f", 1, "F", "x\n");
    EXPECT_EQ(kept.level, 0);
    EXPECT_EQ(kept.text, "x");
}

TEST_F(LogSinkTest, RecordOfACallWithNullTextsHasQuestionMarks) {
    Kept kept;
    StandaloneHost::SetLogSink(&Keep, &kept);
    ZelPrintf(LOG_TYPE_DEFAULT, nullptr, nullptr, nullptr, 1, nullptr, "x\n");
    EXPECT_EQ(kept.level, 0);
    EXPECT_EQ(kept.category, "?");
    EXPECT_EQ(kept.function, "?");
}

TEST_F(LogSinkTest, TextThatQuotesALogLineChangesNothingButTheText) {
    Kept kept;
    StandaloneHost::SetLogSink(&Keep, &kept);
    Print("ERROR discovery utils/file:1 Other: Send probe message failed. [101]");
    EXPECT_EQ(kept.level, LOG_LEVEL_NOTICE);
    EXPECT_EQ(kept.function, "Function");
    EXPECT_EQ(kept.format, "%s\n");
}

TEST_F(LogSinkTest, TextIsTheEndOfTheLineAndMadeSafe) {
    Kept kept;
    StandaloneHost::SetLogSink(&Keep, &kept);
    Print("one\ntwo\x1b[2J");
    EXPECT_EQ(kept.text, "one\\ntwo\\x1b[2J");
    EXPECT_THAT(kept.line, EndsWith(": " + kept.text + "\n"));
}

TEST_F(LogSinkTest, MessageWithoutALineEndLosesNothing) {
    Kept kept;
    StandaloneHost::SetLogSink(&Keep, &kept);
    ZelPrintf(LOG_TYPE_DEFAULT, "c", "INFO", "f", 1, "F", "%s", "");
    EXPECT_EQ(kept.text, "");
    ZelPrintf(LOG_TYPE_DEFAULT, "c", "INFO", "f", 1, "F", "%d%%", 5);
    EXPECT_EQ(kept.text, "5%");
}

TEST_F(LogSinkTest, NullSinkMeansStandardErrorAgain) {
    CapturedStderr captured;
    Lines lines;
    StandaloneHost::SetLogSink(&Collect, &lines);
    StandaloneHost::SetLogSink(nullptr, nullptr);
    Print("to standard error");
    EXPECT_THAT(lines.vecLine, IsEmpty());
    EXPECT_THAT(captured.Lines(), ElementsAre(EndsWith(": to standard error")));
}

TEST_F(LogSinkTest, LaterSinkTakesOver) {
    Lines first;
    Lines second;
    StandaloneHost::SetLogSink(&Collect, &first);
    StandaloneHost::SetLogSink(&Collect, &second);
    Print("for the second");
    EXPECT_THAT(first.vecLine, IsEmpty());
    EXPECT_THAT(second.vecLine, SizeIs(1));
}

TEST_F(LogSinkTest, LineThatTheSinkLogsGoesToStandardError) {
    CapturedStderr captured;
    int calls = 0;
    StandaloneHost::SetLogSink(
        [](const StandaloneHost::LogRecord&, void* cookie) {
            ++*static_cast<int*>(cookie);
            Print("from inside");
        },
        &calls);
    Print("outer");
    Print("outer");
    EXPECT_EQ(calls, 2);
    EXPECT_THAT(captured.Lines(),
                ElementsAre(EndsWith(": from inside"), EndsWith(": from inside")));
}

struct Occupied {
    std::atomic<bool> bEntered = false;
    std::atomic<bool> bReplaced = false;
    std::atomic<bool> bLeft = false;
};

// Stays inside until SetLogSink has returned, which it must not do, or 100 ms have passed.
void StayInside(const StandaloneHost::LogRecord& /*record*/, void* cookie) {
    auto& occupied = *static_cast<Occupied*>(cookie);
    occupied.bEntered = true;
    const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
    while (!occupied.bReplaced && std::chrono::steady_clock::now() < limit) {
        std::this_thread::yield();
    }
    occupied.bLeft = true;
}

TEST_F(LogSinkTest, SetLogSinkReturnsOnlyWhenNoThreadIsInTheFormerSink) {
    Occupied occupied;
    StandaloneHost::SetLogSink(&StayInside, &occupied);
    std::thread logger([] { Print("slow"); });
    while (!occupied.bEntered) {
        std::this_thread::yield();
    }
    StandaloneHost::SetLogSink(nullptr, nullptr);
    const bool left = occupied.bLeft;
    occupied.bReplaced = true;
    logger.join();
    EXPECT_TRUE(left);
}

TEST_F(LogSinkTest, SinksAreReplacedWhileManyThreadsLogAndNoLineIsLost) {
    constexpr int kThreads = 4;
    constexpr int kLines = 300;
    Lines first;
    Lines second;
    StandaloneHost::SetLogSink(&Collect, &first);
    std::atomic<int> running = kThreads;
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < kLines; ++i) {
                Print("line");
            }
            --running;
        });
    }
    for (int i = 0; running > 0; ++i) {
        StandaloneHost::SetLogSink(&Collect, i % 2 == 0 ? &second : &first);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(first.vecLine.size() + second.vecLine.size(), kThreads * kLines);
}

}  // namespace
