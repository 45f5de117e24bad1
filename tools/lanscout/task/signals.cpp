#include "tools/lanscout/task/signals.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <utility>

namespace Lanscout {
namespace {

sigset_t TakenSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGWINCH, SIGCONT}) {
        sigaddset(&set, signal);
    }
    return set;
}

}  // namespace

Signals::Signals() {
    const sigset_t set = TakenSignals();
    sigprocmask(SIG_BLOCK, &set, nullptr);
    m_fd = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

Signals::~Signals() {
    close(m_fd);
    const sigset_t set = TakenSignals();
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

void Signals::Take() {
    signalfd_siginfo info{};
    while (read(m_fd, &info, sizeof info) == sizeof info) {
        if (info.ssi_signo == SIGCONT) {
            m_resumed = true;
        } else if (info.ssi_signo != SIGWINCH) {  // which is taken to wake the caller up
            m_interrupted = true;
        }
    }
}

bool Signals::TakeResumed() {
    return std::exchange(m_resumed, false);
}

void Signals::WaitFor(long milliseconds) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::milliseconds(milliseconds);
    while (!m_interrupted) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        if (left <= 0) {
            return;
        }
        pollfd entry{m_fd, POLLIN, 0};
        poll(&entry, 1, static_cast<int>(std::min<long>(left, 1000)));
        Take();
    }
}

}  // namespace Lanscout
