#include "finder/source/librarylog.h"

#include <charconv>

#include "host/zellog.h"

namespace Lanscout {
namespace {

// A format that ends so has one argument, a number; its text cannot hold what a stranger wrote.
constexpr std::string_view kNumberAtEnd = "[%d]\n";

int NumberIn(const StandaloneHost::LogRecord& record) {
    const auto bracket = record.text.rfind('[');
    int number = 0;
    if (record.format.ends_with(kNumberAtEnd) && bracket != std::string_view::npos) {
        std::from_chars(record.text.data() + bracket + 1, record.text.data() + record.text.size(),
                        number);
    }
    return number;
}

}  // namespace

LibraryLog::LibraryLog(Sender& sender) : m_sender(sender) {
    StandaloneHost::SetLogSink(&Take, this);
    StandaloneHost::AttachLogConfig();
    StandaloneHost::SetCategoryLevel(LOG_CATEG_DISCOVERY, LOG_LEVEL_INFO);
}

LibraryLog::~LibraryLog() {
    StandaloneHost::SetLogSink(nullptr, nullptr);
}

void LibraryLog::Take(const StandaloneHost::LogRecord& record, void* cookie) {
    auto& self = *static_cast<LibraryLog*>(cookie);
    if (record.level <= LOG_LEVEL_NOTICE) {
        const std::lock_guard lock(self.m_mutex);
        // What is said after the number tells less: that setting up the socket failed.
        LoggedFailure& failure = self.m_failures[pthread_self()];
        if (failure.format.empty() || record.format.ends_with(kNumberAtEnd)) {
            failure = {std::string(record.format), NumberIn(record)};
        }
    }
    const std::string_view line = record.line.substr(0, record.line.size() - 1);
    self.m_sender.Send(LogMessage{record.level, std::string(line)});
}

LoggedFailure LibraryLog::FailureOf(pthread_t thread) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_failures.find(thread);
    return found == m_failures.end() ? LoggedFailure{} : found->second;
}

}  // namespace Lanscout
