// The library's log on its way to the parent, and what failed according to it.
#pragma once

#include <pthread.h>

#include <map>
#include <mutex>
#include <string>

#include "control/standalonehost.h"
#include "finder/source/sender.h"

namespace Lanscout {

// What the program itself wrote into the call that told of a failure, and the number in it.
struct LoggedFailure {
    std::string format;
    int number = 0;
};

// Takes every log call of this process, up to the most detailed, for as long as it lives. One
// object at a time, which outlives the process's searches.
class LibraryLog {
public:
    explicit LibraryLog(Sender& sender);
    ~LibraryLog();
    LibraryLog(const LibraryLog&) = delete;
    LibraryLog& operator=(const LibraryLog&) = delete;

    // The last failure that this thread told of, one with a number before those without; an empty
    // format: none.
    LoggedFailure FailureOf(pthread_t thread);

private:
    static void Take(const StandaloneHost::LogRecord& record, void* cookie);

    Sender& m_sender;  // NOLINT
    std::mutex m_mutex;
    std::map<pthread_t, LoggedFailure> m_failures;
};

}  // namespace Lanscout
