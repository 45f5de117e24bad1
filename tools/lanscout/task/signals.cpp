#include "tools/lanscout/task/signals.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <utility>

namespace Lanscout {
namespace {

bool IsIgnored(int signal) {
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

sigset_t TakenSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGWINCH, SIGCONT}) {
        if (!IsIgnored(signal)) {
            sigaddset(&set, signal);
        }
    }
    return set;
}

}  // namespace

SystemSignals::SystemSignals(Hangup hangup) : m_hangup(hangup) {
    const sigset_t set = TakenSignals();
    m_fd = Descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    if (m_fd) {
        sigprocmask(SIG_BLOCK, &set, nullptr);
    }
}

SystemSignals::~SystemSignals() {
    const sigset_t set = TakenSignals();
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

void SystemSignals::Take() {
    signalfd_siginfo info{};
    while (m_fd && read(m_fd.Fd(), &info, sizeof info) == sizeof info) {
        if (info.ssi_signo == SIGCONT) {
            m_resumed = true;
        } else if (info.ssi_signo == SIGHUP && m_hangup == Hangup::IsCollected) {
            m_hungUp = true;
        } else if (info.ssi_signo != SIGWINCH) {  // which is taken to wake the caller up
            m_interrupted = true;
        }
    }
}

bool SystemSignals::TakeResumed() {
    return std::exchange(m_resumed, false);
}

bool SystemSignals::TakeHangup() {
    return std::exchange(m_hungUp, false);
}

void SystemSignals::WaitFor(std::chrono::milliseconds longest) {
    pollfd entry{m_fd.Fd(), POLLIN, 0};
    poll(&entry, 1, static_cast<int>(longest.count()));
}

}  // namespace Lanscout
