#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <exception>
#include <thread>
#include <vector>

extern "C" {  // the header of glibc 2.36 does not say so itself
#include <sys/pidfd.h>
}

#include "host/standalone/karnexecl.h"
#include "host/standalone/seam.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kNotRun = -1;

// A killed program ends at once, unless it is stuck in the kernel. Then nobody waits for it longer
// than this.
constexpr milliseconds kKilledLimit{1000};

std::atomic<StandaloneHost::ProcessRunner> g_runner = nullptr;  // null: RunProgram

class SpawnActions {
public:
    SpawnActions() : m_bReady(posix_spawn_file_actions_init(&m_actions) == 0) {}
    ~SpawnActions() {
        if (m_bReady) {
            posix_spawn_file_actions_destroy(&m_actions);
        }
    }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;

    // The program gets /dev/null as its descriptors 0, 1 and 2 and no other descriptor, also none
    // that the host has left without close-on-exec.
    bool DetachDescriptors() {
        constexpr char kNull[] = "/dev/null";
        return m_bReady &&
               posix_spawn_file_actions_addopen(&m_actions, 0, kNull, O_RDONLY, 0) == 0 &&
               posix_spawn_file_actions_addopen(&m_actions, 1, kNull, O_WRONLY, 0) == 0 &&
               posix_spawn_file_actions_addopen(&m_actions, 2, kNull, O_WRONLY, 0) == 0 &&
               posix_spawn_file_actions_addclosefrom_np(&m_actions, 3) == 0;
    }
    const posix_spawn_file_actions_t* Get() const { return &m_actions; }

private:
    posix_spawn_file_actions_t m_actions{};
    bool m_bReady;
};

class SpawnAttributes {
public:
    SpawnAttributes() : m_bReady(posix_spawnattr_init(&m_attributes) == 0) {}
    ~SpawnAttributes() {
        if (m_bReady) {
            posix_spawnattr_destroy(&m_attributes);
        }
    }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;

    // What the host ignores or blocks would otherwise be ignored and blocked in the program too.
    bool DefaultSignals() {
        sigset_t all;
        sigset_t none;
        sigfillset(&all);
        sigemptyset(&none);
        return m_bReady && posix_spawnattr_setsigdefault(&m_attributes, &all) == 0 &&
               posix_spawnattr_setsigmask(&m_attributes, &none) == 0 &&
               posix_spawnattr_setflags(&m_attributes,
                                        POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK) == 0;
    }
    const posix_spawnattr_t* Get() const { return &m_attributes; }

private:
    posix_spawnattr_t m_attributes{};
    bool m_bReady;
};

// The program gets a fixed environment. The host's is not read: another thread may be changing it.
pid_t Spawn(const char* path, char* const* arguments) {
    char searchPath[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
    char locale[] = "LC_ALL=C";
    char* const environment[] = {searchPath, locale, nullptr};
    SpawnActions actions;
    SpawnAttributes attributes;
    pid_t pid = 0;
    if (!actions.DetachDescriptors() || !attributes.DefaultSignals() ||
        posix_spawn(&pid, path, actions.Get(), attributes.Get(), arguments, environment) != 0) {
        return 0;
    }
    return pid;
}

// A child process that this thread waits for. Its process id is not enough: where the host
// ignores SIGCHLD, or reaps children on another thread, the id is free for another process as soon
// as the child has ended. A pidfd stays that of the child.
class Child {
public:
    explicit Child(pid_t pid) : m_pid(pid), m_fd(pidfd_open(pid, 0)) {}
    ~Child() {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // Waits until the child has ended or has been reaped by others; false when the time is up.
    bool WaitUntil(Clock::time_point deadline) const {
        while (IsRunning()) {
            const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
            if (left.count() <= 0) {
                return false;
            }
            if (m_fd < 0) {
                // There is no pidfd (no descriptor left, an old container's filter): look again
                // soon.
                std::this_thread::sleep_for(std::min(left, kLookAgain));
                continue;
            }
            pollfd ended{m_fd, POLLIN, 0};
            poll(&ended, 1, static_cast<int>(left.count()));
        }
        return true;
    }

    void Kill() const {
        if (m_fd < 0) {
            kill(m_pid, SIGKILL);
        } else {
            pidfd_send_signal(m_fd, SIGKILL, nullptr, 0);
        }
    }

    // Takes the status of an ended child, so that no zombie stays.
    int Result() const {
        siginfo_t info{};
        if (Wait(info, WEXITED | WNOHANG) != 0) {
            // The host took the status, or told the kernel to drop it. The program was started and
            // has ended by itself, and that is all there is to know: it counts as success.
            return 0;
        }
        return info.si_code == CLD_EXITED ? info.si_status : kNotRun;
    }

private:
    static constexpr milliseconds kLookAgain{5};

    int Wait(siginfo_t& info, int options) const {
        return m_fd < 0 ? waitid(P_PID, static_cast<id_t>(m_pid), &info, options)
                        : waitid(P_PIDFD, static_cast<id_t>(m_fd), &info, options);
    }

    // Asked before anything is done to the process: if the child is gone already, its id may belong
    // to a stranger by now.
    bool IsRunning() const {
        siginfo_t info{};
        return Wait(info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == 0;
    }

    pid_t m_pid;
    int m_fd;
};

int Run(const char* path, char* const* arguments) {
    const StandaloneHost::ProcessRunner runner = g_runner.load(std::memory_order_acquire);
    return runner == nullptr ? RunProgram(path, arguments, kRunLimit) : runner(path, arguments);
}

}  // namespace

void StandaloneHost::SetProcessRunner(ProcessRunner runner) {
    g_runner.store(runner, std::memory_order_release);
}

int RunProgram(const char* path, char* const* arguments, milliseconds limit) {
    const pid_t pid = Spawn(path, arguments);
    if (pid == 0) {
        return kNotRun;
    }
    const Child child(pid);
    if (child.WaitUntil(Clock::now() + limit)) {
        return child.Result();
    }
    child.Kill();
    child.WaitUntil(Clock::now() + kKilledLimit);
    child.Result();
    return kNotRun;
}

// The option word is the server's; nothing here has options.
int KarnExecl(const char* path, [[maybe_unused]] int options, ...) {
    if (path == nullptr) {
        return kNotRun;
    }
    va_list list;
    va_start(list, options);
    int result = kNotRun;
    try {
        std::vector<char*> arguments{const_cast<char*>(path)};
        do {
            // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): va_start is not understood here
            arguments.push_back(va_arg(list, char*));
        } while (arguments.back() != nullptr);
        result = Run(path, arguments.data());
    } catch (const std::exception&) {
        result = kNotRun;
    }
    va_end(list);
    return result;
}
