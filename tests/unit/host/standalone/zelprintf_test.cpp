#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/zellog.h"
#include "tests/unit/support/capturedstderr.h"

namespace {

std::function<ssize_t(int, const void*, std::size_t)> g_write;  // empty: the real one
std::function<int(pollfd*, nfds_t, int)> g_poll;
int g_refusals = 0;  // so many requests for memory fail

constexpr int kAll = 1000;

}  // namespace

extern "C" {
ssize_t __real_write(int fd, const void* data, std::size_t size);
ssize_t __wrap_write(int fd, const void* data, std::size_t size) {
    return g_write ? g_write(fd, data, size) : __real_write(fd, data, size);
}
int __real_poll(pollfd* fds, nfds_t count, int timeout);
int __wrap_poll(pollfd* fds, nfds_t count, int timeout) {
    return g_poll ? g_poll(fds, count, timeout) : __real_poll(fds, count, timeout);
}
void* __real__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);
void* __wrap__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag) {
    return g_refusals > 0 && g_refusals-- > 0 ? nullptr : __real__ZnamRKSt9nothrow_t(size, tag);
}
}

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::MatchesRegex;
using ::testing::SizeIs;
using ::testing::StartsWith;

class ZelPrintfTest : public ::testing::Test {
protected:
    void TearDown() override {
        g_write = nullptr;
        g_poll = nullptr;
        g_refusals = 0;
    }
};

void Print(const std::string& message) {
    ZelPrintf(LOG_TYPE_DEFAULT, "discovery", "NOTICE", "utils/file", 42, "Function", "%s\n",
              message.c_str());
}

// What stands behind the place in a line.
std::string MessageOf(const std::string& line) {
    const std::string place = " NOTICE discovery utils/file:42 Function: ";
    const std::size_t at = line.find(place);
    return at == std::string::npos ? "no place in: " + line : line.substr(at + place.size());
}

// The message part of the one line that comes of `message`.
std::string Printed(const std::string& message) {
    CapturedStderr captured;
    Print(message);
    const auto lines = captured.Lines();
    return lines.size() == 1 ? MessageOf(lines[0]) : "not one line: " + captured.Text();
}

TEST_F(ZelPrintfTest, LineHasTimeLevelCategoryPlaceAndMessage) {
    CapturedStderr captured;
    ZelPrintf(LOG_TYPE_DEFAULT, "categ", "level", "dir/file", 120, "Func", "Number %d of %s\n", 7,
              "x");
    EXPECT_THAT(
        captured.Text(),
        MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}"
                     "[+-][0-9]{2}:[0-9]{2} level categ dir/file:120 Func: Number 7 of x\n"));
}

struct Zone {
    const char* name;
    const char* tz;
    std::string offset;
    long seconds;
};

void PrintTo(const Zone& zone, std::ostream* out) {
    *out << zone.tz;
}

// The clock that a line's time comes from. time() has one of its own, a tick behind.
time_t Seconds() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}

class ZelPrintfZoneTest : public ::testing::TestWithParam<Zone> {
protected:
    void TearDown() override {
        unsetenv("TZ");
        tzset();
    }
};

TEST_P(ZelPrintfZoneTest, TimeIsLocalAndNamesItsOffset) {
    setenv("TZ", GetParam().tz, 1);
    tzset();
    CapturedStderr captured;
    const time_t before = Seconds();
    Print("x");
    const time_t after = Seconds();

    const std::string line = captured.Text();
    EXPECT_EQ(line.substr(23, 6), GetParam().offset) << line;
    tm parts{};
    ASSERT_NE(strptime(line.c_str(), "%Y-%m-%dT%H:%M:%S", &parts), nullptr) << line;
    const time_t printed = timegm(&parts) - GetParam().seconds;
    EXPECT_GE(printed, before);
    EXPECT_LE(printed, after);
}

INSTANTIATE_TEST_SUITE_P(Zones, ZelPrintfZoneTest,
                         ::testing::Values(Zone{"Utc", "UTC0", "+00:00", 0},
                                           Zone{"East", "EAST-5:45", "+05:45", 20700},
                                           Zone{"West", "WEST3:30", "-03:30", -12600}),
                         [](const auto& zone) { return zone.param.name; });

TEST_F(ZelPrintfTest, LineIsWrittenInOneCallHoweverLong) {
    std::vector<std::size_t> sizes;
    g_write = [&](int fd, const void* data, std::size_t size) {
        sizes.push_back(fd == STDERR_FILENO ? size : 0);
        return __real_write(fd, data, size);
    };
    CapturedStderr captured;
    Print(std::string(300'000, 'x'));
    EXPECT_THAT(sizes, ElementsAre(captured.Text().size()));
}

TEST_F(ZelPrintfTest, MessagesAroundTheFirstBufferAndFarBeyondAreWhole) {
    std::vector<std::size_t> lengths;
    for (std::size_t length = 930; length < 1060; ++length) {
        lengths.push_back(length);
    }
    lengths.push_back(2'000'000);
    for (const std::size_t length : lengths) {
        std::string message(length, 'm');
        message.back() = 'e';
        EXPECT_TRUE(Printed(message) == message) << length;
    }
}

TEST_F(ZelPrintfTest, RefusedMemoryCutsTheLineAndSaysSo) {
    g_refusals = kAll;
    for (const std::size_t length : {1000U, 1023U, 1024U, 5000U}) {
        const std::string printed = Printed(std::string(length, 'm'));
        EXPECT_THAT(printed, StartsWith(std::string(700, 'm'))) << length;
        EXPECT_THAT(printed, EndsWith(" [cut: no memory]")) << length;
    }
}

TEST_F(ZelPrintfTest, MemoryRefusedForTheMessageAndGivenForTheLineCutsAllTheSame) {
    g_refusals = 1;
    EXPECT_EQ(Printed(std::string(5000, 'm')), std::string(1023, 'm') + " [cut: no memory]");
}

TEST_F(ZelPrintfTest, ShortLineNeedsNoMemory) {
    g_refusals = kAll;
    EXPECT_EQ(Printed("short"), "short");
}

TEST_F(ZelPrintfTest, MemoryRefusedForOneLineIsNotMissedByTheNext) {
    g_refusals = kAll;
    Printed(std::string(5000, 'm'));
    g_refusals = 0;
    EXPECT_EQ(Printed(std::string(5000, 'n')), std::string(5000, 'n'));
}

TEST_F(ZelPrintfTest, ControlCharactersAndBackslashesAreEscaped) {
    const std::pair<std::string, std::string> cases[] = {
        {"a\nb", "a\\nb"},
        {"a\r\n", "a\\r\\n"},
        {"a\tb", "a\\tb"},
        {"\x1b[2J\x1b]0;title\x07", "\\x1b[2J\\x1b]0;title\\x07"},
        {"\x01\x1f\x7f", "\\x01\\x1f\\x7f"},
        {"back\\x1bslash", "back\\\\x1bslash"},
    };
    for (const auto& [text, shown] : cases) {
        EXPECT_EQ(Printed(text), shown);
    }
}

TEST_F(ZelPrintfTest, C1ControlsAreEscapedInBothForms) {
    EXPECT_EQ(Printed("\xc2\x9b"
                      "31m \x9b"
                      "31m \xc2\x80 \xc2\x9f \xc2\x85"),
              "\\xc2\\x9b31m \\x9b31m \\xc2\\x80 \\xc2\\x9f \\xc2\\x85");
}

TEST_F(ZelPrintfTest, ValidUtf8Stays) {
    const std::string text = "Größe \xc2\xa0 \u20ac \uffff \U0001f4f7 \U0010ffff ~";
    EXPECT_EQ(Printed(text), text);
}

TEST_F(ZelPrintfTest, InvalidUtf8IsEscapedByteByByte) {
    const std::pair<std::string, std::string> cases[] = {
        {"\xff\xfe", "\\xff\\xfe"},
        {"\xc3", "\\xc3"},                             // cut off
        {"\xe2\x82", "\\xe2\\x82"},                    // cut off
        {"\xc3(", "\\xc3("},                           // the next character survives
        {"\x80", "\\x80"},                             // begins with a continuation
        {"\xc0\x8a", "\\xc0\\x8a"},                    // overlong line feed
        {"\xe0\x80\x8a", "\\xe0\\x80\\x8a"},           // overlong line feed
        {"\xf0\x80\x80\x8a", "\\xf0\\x80\\x80\\x8a"},  // overlong line feed
        {"\xe0\x80\xaf", "\\xe0\\x80\\xaf"},           // overlong slash
        {"\xf0\x80\x80\xaf", "\\xf0\\x80\\x80\\xaf"},  // overlong slash
        {"\xed\xa0\x80", "\\xed\\xa0\\x80"},           // surrogate
        {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},  // above U+10FFFF
        {"\xf8\x88\x80\x80\x80", "\\xf8\\x88\\x80\\x80\\x80"},
    };
    for (const auto& [text, shown] : cases) {
        EXPECT_EQ(Printed(text), shown);
    }
}

TEST_F(ZelPrintfTest, CharactersThatReorderOrBreakLinesAreEscaped) {
    EXPECT_EQ(Printed("\u202egpj"), "\\xe2\\x80\\xaegpj");
    EXPECT_EQ(Printed("\u2066\u2069\u200f\u061c"),
              "\\xe2\\x81\\xa6\\xe2\\x81\\xa9\\xe2\\x80\\x8f\\xd8\\x9c");
    EXPECT_EQ(Printed("\u2028\u2029"), "\\xe2\\x80\\xa8\\xe2\\x80\\xa9");
}

TEST_F(ZelPrintfTest, ZeroByteDoesNotEndTheMessage) {
    CapturedStderr captured;
    ZelPrintf(LOG_TYPE_DEFAULT, "discovery", "NOTICE", "utils/file", 42, "Function", "a%cb\n", 0);
    EXPECT_EQ(MessageOf(captured.Text()), "a\\x00b\n");
}

TEST_F(ZelPrintfTest, EveryOtherPartOfTheLineIsEscapedToo) {
    CapturedStderr captured;
    ZelPrintf(LOG_TYPE_DEFAULT, "c\n", "l\n", "f\n", 1, "u\n", "m\n");
    EXPECT_THAT(captured.Lines(), ElementsAre(EndsWith(" l\\n c\\n f\\n:1 u\\n: m")));
}

TEST_F(ZelPrintfTest, MessageWithoutLineBreakGetsOne) {
    CapturedStderr captured;
    ZelPrintf(LOG_TYPE_DEFAULT, "discovery", "NOTICE", "utils/file", 42, "Function", "bare");
    EXPECT_EQ(MessageOf(captured.Text()), "bare\n");
}

TEST_F(ZelPrintfTest, OnlyTheLastOfTwoLineBreaksEndsTheLine) {
    CapturedStderr captured;
    ZelPrintf(LOG_TYPE_DEFAULT, "discovery", "NOTICE", "utils/file", 42, "Function", "two\n\n");
    EXPECT_EQ(MessageOf(captured.Text()), "two\\n\n");
}

TEST_F(ZelPrintfTest, AbsentTextsDoNotCrash) {
    CapturedStderr captured;
    ZelPrintf(LOG_TYPE_DEFAULT, nullptr, nullptr, nullptr, 1, nullptr, "m\n");
    EXPECT_THAT(captured.Lines(), ElementsAre(EndsWith(" ? ? ?:1 ?: m")));
}

TEST_F(ZelPrintfTest, MessageThatCannotBeFormattedShowsItsFormat) {
    CapturedStderr captured;
    const wchar_t unencodable[] = {static_cast<wchar_t>(0x20ac), 0};  // no such character in "C"
    ZelPrintf(LOG_TYPE_DEFAULT, "discovery", "NOTICE", "utils/file", 42, "Function", "say %ls\n",
              unencodable);
    EXPECT_EQ(MessageOf(captured.Text()), "say %ls\n");
}

TEST_F(ZelPrintfTest, AnySinkTypeIsPrinted) {
    CapturedStderr captured;
    ZelPrintf(static_cast<LOG_TYPE>(99), "discovery", "NOTICE", "utils/file", 42, "Function",
              "m\n");
    EXPECT_EQ(MessageOf(captured.Text()), "m\n");
}

TEST_F(ZelPrintfTest, ErrnoStaysWhenTheLineIsWritten) {
    CapturedStderr captured;
    errno = ENXIO;
    Print(std::string(5000, 'm'));
    EXPECT_EQ(errno, ENXIO);
}

TEST_F(ZelPrintfTest, ErrnoStaysWhenStandardErrorIsClosed) {
    CapturedStderr captured;
    close(STDERR_FILENO);
    errno = ENXIO;
    Print("m");
    EXPECT_EQ(errno, ENXIO);
}

TEST_F(ZelPrintfTest, InterruptedWriteIsRepeated) {
    CapturedStderr captured;
    int interruptions = 2;
    g_write = [&](int fd, const void* data, std::size_t size) -> ssize_t {
        if (interruptions-- > 0) {
            errno = EINTR;
            return -1;
        }
        return __real_write(fd, data, size);
    };
    Print("after signals");
    EXPECT_EQ(MessageOf(captured.Text()), "after signals\n");
}

TEST_F(ZelPrintfTest, ShortWritesAreContinued) {
    CapturedStderr captured;
    g_write = [](int fd, const void* data, std::size_t size) {
        return __real_write(fd, data, std::min<std::size_t>(size, 7));
    };
    Print("in many pieces");
    EXPECT_EQ(MessageOf(captured.Text()), "in many pieces\n");
}

// A pipe with its reading end closed, for standard error.
int DeadPipe() {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    return ends[1];
}

bool IsSigpipePending() {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
}

TEST_F(ZelPrintfTest, StandardErrorThatNobodyReadsDoesNotKill) {
    ASSERT_EQ(signal(SIGPIPE, SIG_DFL), SIG_DFL);
    CapturedStderr captured(DeadPipe());
    errno = ENXIO;
    Print("nobody reads this");
    EXPECT_EQ(errno, ENXIO);
    EXPECT_FALSE(IsSigpipePending());
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGPIPE), 0);
}

TEST_F(ZelPrintfTest, BlockedSigpipeIsNotLeftPending) {
    sigset_t sigpipe;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &sigpipe, nullptr);
    CapturedStderr captured(DeadPipe());
    Print("nobody reads this");
    EXPECT_FALSE(IsSigpipePending());
    pthread_sigmask(SIG_UNBLOCK, &sigpipe, nullptr);
}

TEST_F(ZelPrintfTest, SigpipeThatWasPendingBeforeStaysPending) {
    sigset_t sigpipe;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &sigpipe, nullptr);
    pthread_kill(pthread_self(), SIGPIPE);
    CapturedStderr captured(DeadPipe());
    Print("nobody reads this");
    EXPECT_TRUE(IsSigpipePending());
    const timespec now{};
    EXPECT_EQ(sigtimedwait(&sigpipe, nullptr, &now), SIGPIPE);
    pthread_sigmask(SIG_UNBLOCK, &sigpipe, nullptr);
}

// A full pipe that does not block, for standard error; its reading end goes to `reader`.
int FullPipe(int& reader) {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    const std::string filling(65536, 'f');
    while (__real_write(ends[1], filling.data(), filling.size()) > 0) {
    }
    reader = ends[0];
    return ends[1];
}

TEST_F(ZelPrintfTest, FullStandardErrorIsWaitedForAndThenGivenUp) {
    int reader = -1;
    CapturedStderr captured(FullPipe(reader));
    std::vector<int> waits;
    g_poll = [&](pollfd* fds, nfds_t, int timeout) {
        EXPECT_EQ(fds->fd, STDERR_FILENO);
        waits.push_back(timeout);
        return 0;
    };
    Print("no room");
    close(reader);
    EXPECT_THAT(waits, ElementsAre(200));
}

TEST_F(ZelPrintfTest, FullStandardErrorThatIsReadInTimeGetsTheLine) {
    int reader = -1;
    CapturedStderr captured(FullPipe(reader));
    std::string text(1 << 20, '\0');
    g_poll = [&](pollfd*, nfds_t, int) {
        EXPECT_GT(read(reader, text.data(), text.size()), 0);
        return 1;
    };
    Print("room again");
    const ssize_t count = read(reader, text.data(), text.size());
    close(reader);
    ASSERT_GT(count, 0);
    EXPECT_EQ(MessageOf(text.substr(0, static_cast<std::size_t>(count))), "room again\n");
}

TEST_F(ZelPrintfTest, LinesOfManyThreadsNeverMix) {
    constexpr int kThreads = 8;
    constexpr int kLines = 100;
    CapturedStderr captured;
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kLines; ++i) {
                Print(std::string(static_cast<std::size_t>(1 + 97 * i % 5000),
                                  static_cast<char>('a' + t)));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::vector<std::string> messages;
    for (const std::string& line : captured.Lines()) {
        messages.push_back(MessageOf(line));
    }
    ASSERT_THAT(messages, SizeIs(kThreads * kLines));
    for (const std::string& message : messages) {
        EXPECT_EQ(message, std::string(message.size(), message[0]));
    }
}

}  // namespace
