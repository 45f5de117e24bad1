#include "tools/lanscout-sim/command.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "tools/lanscout-sim/base/setuperror.h"
#include "tools/lanscout-sim/network/descriptor.h"

namespace lansim {
namespace {

bool Become(const User& user) {
    if (initgroups(user.name.c_str(), user.gid) != 0 || setgid(user.gid) != 0 ||
        setuid(user.uid) != 0) {
        return false;
    }
    setenv("HOME", user.home.c_str(), 1);
    setenv("USER", user.name.c_str(), 1);
    setenv("LOGNAME", user.name.c_str(), 1);
    return true;
}

[[noreturn]] void Report(int reason, int reportTo) {
    [[maybe_unused]] const auto written = write(reportTo, &reason, sizeof reason);
    _exit(127);
}

// Runs in the child; only returns through the pipe, which a successful exec closes.
[[noreturn]] void BecomeCommand(const std::vector<std::string>& arguments,
                                const std::optional<User>& user, int reportTo) {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    if (user && !Become(*user)) {
        Report(errno, reportTo);
    }
    prctl(PR_SET_PDEATHSIG, SIGTERM);  // a change of user undoes it
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (const auto& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    Report(errno, reportTo);
}

std::optional<uid_t> Number(const std::string& text) {
    uid_t number = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    return error == std::errc{} && rest == end ? std::optional<uid_t>(number) : std::nullopt;
}

}  // namespace

std::optional<User> FindUser(const std::string& nameOrNumber) {
    const passwd* entry = getpwnam(nameOrNumber.c_str());
    const auto number = Number(nameOrNumber);
    if (entry == nullptr && number) {
        entry = getpwuid(*number);
    }
    if (entry == nullptr) {
        return std::nullopt;
    }
    return User{entry->pw_name, entry->pw_dir, entry->pw_uid, entry->pw_gid};
}

Command::Command(const std::vector<std::string>& arguments, const std::string& address,
                 const std::optional<User>& user) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        FailWithErrno("cannot make a pipe");
    }
    const Descriptor report(ends[0]);
    Descriptor reportTo(ends[1]);
    setenv("LANSCOUT_SIM_ADDRESS", address.c_str(), 1);
    m_pid = fork();
    if (m_pid == 0) {
        BecomeCommand(arguments, user, reportTo.Get());
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
    if (!ExitStatus()) {
        Signal(SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
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
