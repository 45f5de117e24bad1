#include "tools/lanscout-sim/command.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "tools/lanscout-sim/base/setuperror.h"
#include "tools/lanscout-sim/network/descriptor.h"

namespace lansim {
namespace {

constexpr std::chrono::seconds kGrace{3};
constexpr std::chrono::milliseconds kGraceStep{20};

// Runs in the child; only returns through the pipe, which a successful exec closes.
[[noreturn]] void BecomeCommand(const std::vector<std::string>& arguments, int reportTo) {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (const auto& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    const int reason = errno;
    [[maybe_unused]] const auto written = write(reportTo, &reason, sizeof reason);
    _exit(127);
}

}  // namespace

Command::Command(const std::vector<std::string>& arguments, const std::string& address) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        FailWithErrno("cannot make a pipe");
    }
    const Descriptor report(ends[0]);
    Descriptor reportTo(ends[1]);
    setenv("LANSCOUT_SIM_ADDRESS", address.c_str(), 1);
    m_pid = fork();
    if (m_pid == 0) {
        BecomeCommand(arguments, reportTo.Get());
    }
    if (m_pid < 0) {
        FailWithErrno("cannot start " + arguments[0]);
    }
    reportTo = Descriptor();
    int reason = 0;
    if (read(report.Get(), &reason, sizeof reason) == sizeof reason) {
        waitpid(m_pid, nullptr, 0);
        m_status = 127;
        throw SetupError(fmt::format("cannot run {}: {}", arguments[0], std::strerror(reason)));
    }
}

Command::~Command() {
    if (ExitStatus()) {
        return;
    }
    Signal(SIGTERM);
    for (auto waited = std::chrono::milliseconds(0); waited < kGrace; waited += kGraceStep) {
        if (ExitStatus()) {
            return;
        }
        std::this_thread::sleep_for(kGraceStep);
    }
    Signal(SIGKILL);
    waitpid(m_pid, nullptr, 0);
}

std::optional<int> Command::ExitStatus() {
    int status = 0;
    if (!m_status && waitpid(m_pid, &status, WNOHANG) == m_pid) {
        m_status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }
    return m_status;
}

void Command::Signal(int number) const {
    if (!m_status) {
        kill(m_pid, number);
    }
}

}  // namespace lansim
