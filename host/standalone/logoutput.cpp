#include "host/standalone/logoutput.h"

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <memory>
#include <mutex>

namespace {

// A standard error that does not block and is full is given this long, then the line is dropped: a
// reader that has stopped must not stop the search.
constexpr int kFullOutputWaitMs = 200;

struct Sink {
    StandaloneHost::LogSink pfnRecord = nullptr;
    void* pCookie = nullptr;
};

// Logging threads share the lock while they are inside the sink. A waiting writer goes first, so
// that threads that log without a pause cannot keep SetLogSink waiting for ever.
pthread_rwlock_t g_sinkLock = PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP;
Sink g_sink;
std::atomic<bool> g_bSink = false;  // standard error, the common case, costs no lock
thread_local bool t_bInSink = false;

std::mutex g_standardError;

// Keeps a standard error that nobody reads any more from killing the process: SIGPIPE is blocked
// for this thread, and the one that a write raised is taken back. One that was pending before
// stays.
class NoSigpipe {
public:
    NoSigpipe() {
        sigset_t pending;
        sigemptyset(&pending);
        sigpending(&pending);
        m_bPending = sigismember(&pending, SIGPIPE) == 1;
        sigemptyset(&m_sigpipe);
        sigaddset(&m_sigpipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &m_sigpipe, &m_former);
    }
    ~NoSigpipe() {
        const timespec now{};
        if (m_bRaised && !m_bPending) {
            while (sigtimedwait(&m_sigpipe, nullptr, &now) < 0 && errno == EINTR) {
            }
        }
        pthread_sigmask(SIG_SETMASK, &m_former, nullptr);
    }
    NoSigpipe(const NoSigpipe&) = delete;
    NoSigpipe& operator=(const NoSigpipe&) = delete;

    void Raised() { m_bRaised = true; }

private:
    sigset_t m_sigpipe;
    sigset_t m_former;
    bool m_bPending = false;
    bool m_bRaised = false;
};

bool WaitForRoom() {
    pollfd output{STDERR_FILENO, POLLOUT, 0};
    return poll(&output, 1, kFullOutputWaitMs) > 0;
}

// One write is the rule. It takes more only when a signal or a full pipe cut the first one short;
// the lock keeps the rest of the line behind its beginning.
void WriteToStandardError(std::string_view line) {
    const std::lock_guard lock(g_standardError);
    NoSigpipe noSigpipe;
    while (!line.empty()) {
        const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
        if (written >= 0) {
            line.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EPIPE) {
            noSigpipe.Raised();
            return;
        } else if (errno != EINTR && (errno != EAGAIN || !WaitForRoom())) {
            return;
        }
    }
}

bool WriteToSink(const StandaloneHost::LogRecord& record) {
    // What the sink itself logs would wait for its own lock: it goes to standard error.
    if (t_bInSink || !g_bSink.load(std::memory_order_acquire)) {
        return false;
    }
    pthread_rwlock_rdlock(&g_sinkLock);
    const Sink sink = g_sink;
    if (sink.pfnRecord != nullptr) {
        t_bInSink = true;
        sink.pfnRecord(record, sink.pCookie);
        t_bInSink = false;
    }
    pthread_rwlock_unlock(&g_sinkLock);
    return sink.pfnRecord != nullptr;
}

// A child that the host forks while other threads log must be able to log too, and those threads
// are not there to give back what they hold.
void BeforeFork() {
    if (!t_bInSink) {
        pthread_rwlock_rdlock(&g_sinkLock);  // nobody is in the midst of changing the sink
    }
}

void InForkingProcess() {
    if (!t_bInSink) {
        pthread_rwlock_unlock(&g_sinkLock);
    }
}

// The lock of standard error is not waited for before the fork: it may be held for long.
void InForkedChild() {
    constexpr pthread_rwlock_t kFree = PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP;
    InForkingProcess();  // this thread's own hold; those of the other threads go with the next line
    g_sinkLock = kFree;
    if (t_bInSink) {
        pthread_rwlock_rdlock(&g_sinkLock);  // the sink that forked gives it back
    }
    std::construct_at(&g_standardError);
}

// After the handlers of zelprintf.cpp, which are at 101; the reason stands there.
[[gnu::constructor(102)]] void LookAfterForks() {
    pthread_atfork(BeforeFork, InForkingProcess, InForkedChild);
}

}  // namespace

void WriteLogRecord(const StandaloneHost::LogRecord& record) {
    if (!WriteToSink(record)) {
        WriteToStandardError(record.line);
    }
}

void StandaloneHost::SetLogSink(LogSink sink, void* cookie) {
    pthread_rwlock_wrlock(&g_sinkLock);
    g_sink = {sink, cookie};
    g_bSink.store(sink != nullptr, std::memory_order_release);
    pthread_rwlock_unlock(&g_sinkLock);
}
