#include <pthread.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <mutex>
#include <new>
#include <string_view>

#include "host/standalone/logenums.h"
#include "host/standalone/logoutput.h"
#include "host/standalone/logtext.h"
#include "host/standalone/seam.h"

namespace {

// localtime_r holds a lock of the C library's that fork knows nothing of: a child that is forked
// while another thread holds it would wait for it for ever.
std::mutex g_localTime;

// Before the handlers of logoutput.cpp, which are at 102. A fork takes the locks in the reverse
// order, the sink's first and this one second, as a sink that logs or forks does.
[[gnu::constructor(101)]] void LookAfterForks() {
    pthread_atfork([] { g_localTime.lock(); }, [] { g_localTime.unlock(); },
                   [] { g_localTime.unlock(); });
}

bool ToLocalTime(const time_t& seconds, tm& parts) {
    const std::lock_guard lock(g_localTime);
    return localtime_r(&seconds, &parts) != nullptr;
}

std::string_view TextOf(const char* text) {
    return text == nullptr ? "?" : text;
}

// Local time with its offset from UTC (RFC 3339), so that the logs of several machines compare.
void AppendTime(LogText& line) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts{};
    if (!ToLocalTime(now.tv_sec, parts)) {
        gmtime_r(&now.tv_sec, &parts);
    }
    const long offsetMinutes = std::labs(parts.tm_gmtoff) / 60;
    char text[64];
    const std::size_t seconds = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    line.Append({text, seconds});
    const int rest =
        std::snprintf(text, sizeof text, ".%03ld%c%02ld:%02ld", now.tv_nsec / 1'000'000,
                      parts.tm_gmtoff < 0 ? '-' : '+', offsetMinutes / 60, offsetMinutes % 60);
    line.Append({text, static_cast<std::size_t>(rest)});
}

void AppendPlace(LogText& line, const char* file, int number, const char* function) {
    char text[16];
    const int length = std::snprintf(text, sizeof text, ":%d ", number);
    line.AppendVisible(TextOf(file));
    line.Append({text, static_cast<std::size_t>(length)});
    line.AppendVisible(TextOf(function));
}

void AppendMessage(LogText& line, std::string_view message) {
    if (message.ends_with('\n')) {
        message.remove_suffix(1);
    }
    line.AppendVisible(message);
}

__attribute__((format(printf, 2, 0))) void AppendFormatted(LogText& line, const char* format,
                                                           va_list arguments) {
    char local[1024];
    va_list again;
    va_copy(again, arguments);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the caller's va_start is not understood
    const int length = std::vsnprintf(local, sizeof local, format, arguments);
    if (length < 0) {
        AppendMessage(line, format);  // it cannot be formatted, so its format has to do
    } else if (const auto size = static_cast<std::size_t>(length); size < sizeof local) {
        AppendMessage(line, {local, size});
    } else if (const std::unique_ptr<char[]> message(new (std::nothrow) char[size + 1]); message) {
        std::vsnprintf(message.get(), size + 1, format, again);
        AppendMessage(line, {message.get(), size});
    } else {
        AppendMessage(line, {local, sizeof local - 1});
        line.Cut();
    }
    va_end(again);
}

}  // namespace

// The sink type is the server's own choice of destination; here there is one for all.
void ZelPrintf(LOG_TYPE /*type*/, const char* category, const char* level, const char* file,
               int number, const char* function, const char* format, ...) {
    const int callersErrno = errno;
    LogText line;
    AppendTime(line);
    line.Append(" ");
    line.AppendVisible(TextOf(level));
    line.Append(" ");
    line.AppendVisible(TextOf(category));
    line.Append(" ");
    AppendPlace(line, file, number, function);
    line.Append(": ");
    const std::size_t messageAt = line.View().size();
    va_list arguments;
    va_start(arguments, format);
    AppendFormatted(line, format, arguments);
    va_end(arguments);
    line.EndLine();
    const std::string_view whole = line.View();
    WriteLogRecord({.level = LevelOfText(TextOf(level)),
                    .category = TextOf(category),
                    .function = TextOf(function),
                    .format = TextOf(format),
                    .text = whole.substr(messageAt, whole.size() - messageAt - 1),
                    .line = whole});
    errno = callersErrno;
}
