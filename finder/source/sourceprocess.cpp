#include "finder/source/sourceprocess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <exception>
#include <utility>

namespace Lanscout {
namespace {

// A line is a device's record of a dozen bounded texts; what is longer is no line of ours.
constexpr std::size_t kLongestLineBytes = std::size_t{256} * 1024;
constexpr int kPipeFd = 3;

void SetUpSignals() {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGWINCH, SIGCONT, SIGTSTP, SIGPIPE}) {
        std::signal(signal, SIG_DFL);
    }
    std::signal(SIGPIPE, SIG_IGN);  // NOLINT(bugprone-signal-handler): no handler
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

// Standard output and error belong to the tool: no library may write there meanwhile.
void SetUpDescriptors(int pipeFd) {
    if (pipeFd != kPipeFd) {
        dup2(pipeFd, kPipeFd);
    }
    fcntl(kPipeFd, F_SETFD, FD_CLOEXEC);
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        dup2(null, fd);
    }
    close_range(kPipeFd + 1, ~0U, 0);  // null too
}

[[noreturn]] void RunChild(pid_t parent, int pipeFd, const std::function<void(Sender&)>& body) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(1);
    }
    SetUpSignals();
    SetUpDescriptors(pipeFd);
    Sender sender(kPipeFd);
    try {
        body(sender);
    } catch (const std::exception& failure) {
        sender.Send(FailureMessage{{}, failure.what(), ""});
    }
    _exit(0);
}

}  // namespace

std::optional<SourceProcess> SourceProcess::Start(const std::function<void(Sender&)>& body) {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        return std::nullopt;
    }
    Descriptor ours(ends[0]);
    const Descriptor theirs(ends[1]);
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) {
        RunChild(parent, theirs.Fd(), body);
    }
    if (pid < 0) {
        return std::nullopt;
    }
    setpgid(pid, pid);
    fcntl(ours.Fd(), F_SETFL, O_NONBLOCK);
    return SourceProcess(pid, std::move(ours));
}

SourceProcess::SourceProcess(SourceProcess&& other) noexcept
    : m_pid(std::exchange(other.m_pid, -1)),
      m_pipe(std::move(other.m_pipe)),
      m_pending(std::move(other.m_pending)) {}

SourceProcess& SourceProcess::operator=(SourceProcess&& other) noexcept {
    std::swap(m_pid, other.m_pid);
    std::swap(m_pipe, other.m_pipe);
    std::swap(m_pending, other.m_pending);
    return *this;
}

SourceProcess::~SourceProcess() {
    Kill();
}

bool SourceProcess::ReadLines(const std::function<void(std::string_view)>& take) {
    std::array<char, 65536> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled next
    const ssize_t count = read(m_pipe.Fd(), buffer.data(), buffer.size());
    if (count < 0) {
        return errno == EAGAIN || errno == EINTR;
    }
    m_pending.append(buffer.data(), static_cast<std::size_t>(count));
    std::size_t start = 0;
    for (std::size_t end = m_pending.find('\n'); end != std::string::npos;
         end = m_pending.find('\n', start)) {
        take(std::string_view(m_pending).substr(start, end - start));
        start = end + 1;
    }
    m_pending.erase(0, start);
    return count > 0 && m_pending.size() <= kLongestLineBytes;
}

bool SourceProcess::Write(std::string_view text, std::chrono::milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (!text.empty()) {
        const ssize_t count = send(Fd(), text.data(), text.size(), MSG_NOSIGNAL);
        if (count >= 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
            continue;
        }
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        if ((errno != EAGAIN && errno != EINTR) || left.count() <= 0) {
            return false;
        }
        pollfd entry{Fd(), POLLOUT, 0};
        poll(&entry, 1, static_cast<int>(left.count()));
    }
    return true;
}

void SourceProcess::EndWriting() {
    shutdown(Fd(), SHUT_WR);
}

int SourceProcess::Join() {
    int status = 0;
    const pid_t pid = std::exchange(m_pid, -1);
    if (pid <= 0 || waitpid(pid, &status, 0) != pid) {
        return 0;
    }
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

void SourceProcess::Kill() {
    if (m_pid > 0) {
        kill(-m_pid, SIGKILL);
        kill(m_pid, SIGKILL);
        Join();
    }
}

void SourceProcess::DrainLines(const std::function<void(std::string_view)>& take) {
    // A pipe holds a bounded number of bytes, and nobody writes to it any more.
    while (ReadLines(take)) {
    }
}

}  // namespace Lanscout
