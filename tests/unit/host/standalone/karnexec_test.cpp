// The programs that are run here are real ones. What a program finds when it starts is written down
// by this very test, which is also a program to run (see main).
#include <fcntl.h>
#include <gmock/gmock.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "control/standalonehost.h"
#include "host/karnexec.h"
#include "host/standalone/karnexecl.h"

namespace {

std::function<int()> g_pidfdOpen;  // empty: the real one
std::function<int(pid_t*)> g_spawn;
std::atomic<int> g_kills = 0;

}  // namespace

extern "C" {
int __real_pidfd_open(pid_t pid, unsigned flags);
int __wrap_pidfd_open(pid_t pid, unsigned flags) {
    return g_pidfdOpen ? g_pidfdOpen() : __real_pidfd_open(pid, flags);
}
int __real_posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                       const posix_spawnattr_t* attributes, char* const* argv, char* const* env);
int __wrap_posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                       const posix_spawnattr_t* attributes, char* const* argv, char* const* env) {
    return g_spawn ? g_spawn(pid) : __real_posix_spawn(pid, path, actions, attributes, argv, env);
}
int __real_pidfd_send_signal(int fd, int number, siginfo_t* info, unsigned flags);
int __wrap_pidfd_send_signal(int fd, int number, siginfo_t* info, unsigned flags) {
    ++g_kills;
    return g_spawn ? 0 : __real_pidfd_send_signal(fd, number, info, flags);
}
int __real_kill(pid_t pid, int number);
int __wrap_kill(pid_t pid, int number) {
    ++g_kills;
    return g_spawn ? 0 : __real_kill(pid, number);
}
}

namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr int kOptions = 0xBB;

int RunAlone(const char* path) {
    return KarnExecl(path, kOptions, nullptr);
}

int RunSleep(milliseconds limit) {
    std::string sleep = "/bin/sleep";
    std::string seconds = "1000";
    char* const arguments[] = {sleep.data(), seconds.data(), nullptr};
    return RunProgram(sleep.c_str(), arguments, limit);
}

bool HasChild() {
    siginfo_t info{};
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

std::size_t OpenDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

class KarnExecTest : public ::testing::Test {
protected:
    void TearDown() override {
        StandaloneHost::SetProcessRunner(nullptr);
        signal(SIGCHLD, SIG_DFL);
        g_pidfdOpen = nullptr;
        g_spawn = nullptr;
        g_kills = 0;
    }
};

TEST_F(KarnExecTest, ProgramThatSucceedsGivesZero) {
    EXPECT_EQ(RunAlone("/bin/true"), 0);
}

TEST_F(KarnExecTest, ProgramThatFailsGivesItsStatus) {
    EXPECT_EQ(RunAlone("/bin/false"), 1);
}

TEST_F(KarnExecTest, ArgumentsReachTheProgram) {
    EXPECT_EQ(KarnExecl("/usr/bin/test", kOptions, "a b", "=", "a b", nullptr), 0);
    EXPECT_EQ(KarnExecl("/usr/bin/test", kOptions, "a b", "=", "a", "b", nullptr), 2);
}

TEST_F(KarnExecTest, NoShellReadsTheArguments) {
    EXPECT_EQ(KarnExecl("/usr/bin/test", kOptions, "$HOME;exit 3", "=", "$HOME;exit 3", nullptr),
              0);
    EXPECT_NE(RunAlone("/bin/true; /bin/true"), 0);
}

TEST_F(KarnExecTest, MissingProgramFails) {
    EXPECT_NE(RunAlone("/nonexistent/arping"), 0);
    EXPECT_FALSE(HasChild());
}

TEST_F(KarnExecTest, WhatIsNoProgramFails) {
    EXPECT_NE(RunAlone("/etc/passwd"), 0);
    EXPECT_NE(RunAlone("/"), 0);
    EXPECT_NE(RunAlone(""), 0);
    EXPECT_NE(RunAlone(nullptr), 0);
    EXPECT_FALSE(HasChild());
}

TEST_F(KarnExecTest, NameIsNotLookedUpInThePath) {
    EXPECT_NE(RunAlone("true"), 0);
}

TEST_F(KarnExecTest, ProgramEndedByASignalFails) {
    // timeout sends itself the signal that it sent its program.
    EXPECT_EQ(KarnExecl("/usr/bin/timeout", kOptions, "-s", "KILL", "0.01", "/bin/sleep", "1000",
                        nullptr),
              -1);
    EXPECT_FALSE(HasChild());
}

TEST_F(KarnExecTest, RunnerThatHangsIsKilledAndFails) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_NE(RunSleep(milliseconds(30)), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(g_kills, 1);
    EXPECT_FALSE(HasChild());
}

TEST_F(KarnExecTest, RunnerHasFiveSeconds) {
    EXPECT_EQ(kRunLimit, std::chrono::seconds(5));
    EXPECT_EQ(KarnExecl("/bin/sleep", kOptions, "0.1", nullptr), 0);
    EXPECT_EQ(g_kills, 0);
}

TEST_F(KarnExecTest, NeitherZombieNorDescriptorIsLeft) {
    const std::size_t before = OpenDescriptors();
    RunAlone("/bin/true");
    RunAlone("/nonexistent/arping");
    RunSleep(milliseconds(1));
    EXPECT_FALSE(HasChild());
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(KarnExecTest, HostThatIgnoresSigchldIsNoHindrance) {
    signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(RunAlone("/bin/true"), 0);
    EXPECT_EQ(KarnExecl("/bin/sleep", kOptions, "0.05", nullptr), 0);
    EXPECT_NE(RunAlone("/nonexistent/arping"), 0);
    EXPECT_NE(RunSleep(milliseconds(30)), 0);
    EXPECT_FALSE(HasChild());
    struct sigaction action {};
    sigaction(SIGCHLD, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_IGN);
}

TEST_F(KarnExecTest, StatusThatTheHostDropsCountsAsSuccess) {
    signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(RunAlone("/bin/false"), 0);
}

TEST_F(KarnExecTest, HostThatReapsChildrenItselfIsNoHindrance) {
    std::atomic<bool> done = false;
    std::thread reaper([&done] {
        while (!done) {
            waitpid(-1, nullptr, WNOHANG);
        }
    });
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(RunAlone("/bin/true"), 0);
    }
    EXPECT_NE(RunSleep(milliseconds(10)), 0);
    EXPECT_NE(RunAlone("/nonexistent/arping"), 0);
    done = true;
    reaper.join();
    EXPECT_FALSE(HasChild());
}

TEST_F(KarnExecTest, OtherChildrenOfTheHostAreLeftToIt) {
    const pid_t other = fork();
    if (other == 0) {
        _exit(9);
    }
    EXPECT_EQ(RunAlone("/bin/true"), 0);
    int status = 0;
    EXPECT_EQ(waitpid(other, &status, 0), other);
    EXPECT_EQ(WEXITSTATUS(status), 9);
}

TEST_F(KarnExecTest, ManyThreadsRunProgramsAtOnce) {
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    threads.reserve(6);
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&wrong, t] {
            for (int i = 0; i < 10; ++i) {
                const bool even = (t + i) % 2 == 0;
                wrong += RunAlone(even ? "/bin/true" : "/bin/false") == (even ? 0 : 1) ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_FALSE(HasChild());
}

TEST_F(KarnExecTest, WithoutAPidfdTheRunIsWatchedAllTheSame) {
    g_pidfdOpen = [] {
        errno = EMFILE;
        return -1;
    };
    EXPECT_EQ(RunAlone("/bin/true"), 0);
    EXPECT_EQ(RunAlone("/bin/false"), 1);
    EXPECT_EQ(KarnExecl("/bin/sleep", kOptions, "0.05", nullptr), 0);
    EXPECT_EQ(g_kills, 0);
    EXPECT_NE(RunSleep(milliseconds(30)), 0);
    EXPECT_EQ(g_kills, 1);
    EXPECT_FALSE(HasChild());
}

TEST_F(KarnExecTest, ProcessThatGotTheIdOfAReapedChildIsNotKilled) {
    for (const bool pidfd : {true, false}) {
        g_pidfdOpen = pidfd ? nullptr : std::function<int()>([] { return -1; });
        g_spawn = [](pid_t* pid) {
            *pid = getppid();
            return 0;
        };
        std::string path = "/bin/true";
        char* const arguments[] = {path.data(), nullptr};
        EXPECT_EQ(RunProgram(path.c_str(), arguments, milliseconds(0)), 0);
        EXPECT_EQ(g_kills, 0);
    }
}

TEST_F(KarnExecTest, ProcessThatCannotBeMadeFails) {
    g_spawn = [](pid_t*) { return EAGAIN; };
    EXPECT_NE(RunAlone("/bin/true"), 0);
}

std::vector<std::string> g_handedOver;

int TakeOver(const char* path, const char* const* arguments) {
    g_handedOver = {path};
    for (; *arguments != nullptr; ++arguments) {
        g_handedOver.emplace_back(*arguments);
    }
    return 0;
}

TEST_F(KarnExecTest, RunnerOfTheProgramsOwnGetsPathAndArguments) {
    StandaloneHost::SetProcessRunner(&TakeOver);
    EXPECT_EQ(KarnExecl("/nonexistent/arping", kOptions, "-c", "1", nullptr), 0);
    EXPECT_THAT(g_handedOver, ElementsAre("/nonexistent/arping", "/nonexistent/arping", "-c", "1"));
}

TEST_F(KarnExecTest, ResultIsThatOfTheProgramsOwnRunner) {
    StandaloneHost::SetProcessRunner([](const char*, const char* const*) { return 42; });
    EXPECT_EQ(RunAlone("/bin/true"), 42);
}

TEST_F(KarnExecTest, BesideARunnerOfTheProgramsOwnNothingIsStarted) {
    int starts = 0;
    g_spawn = [&starts](pid_t*) {
        ++starts;
        return EAGAIN;
    };
    StandaloneHost::SetProcessRunner([](const char*, const char* const*) { return -1; });
    EXPECT_EQ(RunAlone("/bin/true"), -1);
    EXPECT_EQ(starts, 0);
}

TEST_F(KarnExecTest, WithoutAPathTheProgramsOwnRunnerIsNotAsked) {
    g_handedOver.clear();
    StandaloneHost::SetProcessRunner(&TakeOver);
    EXPECT_EQ(RunAlone(nullptr), -1);
    EXPECT_THAT(g_handedOver, IsEmpty());
}

TEST_F(KarnExecTest, NullRunnerMeansThatTheHostStartsProgramsAgain) {
    StandaloneHost::SetProcessRunner([](const char*, const char* const*) { return 42; });
    StandaloneHost::SetProcessRunner(nullptr);
    EXPECT_EQ(RunAlone("/bin/true"), 0);
    EXPECT_EQ(RunAlone("/bin/false"), 1);
}

// What a program that KarnExecl started found, by name.
using Found = std::map<std::string, std::vector<std::string>>;

class KarnExecChildTest : public KarnExecTest {
protected:
    Found Probe() {
        const std::string file = ::testing::TempDir() + "karnexec-" + std::to_string(getpid());
        EXPECT_EQ(KarnExecl("/proc/self/exe", kOptions, "--write-what-you-find", file.c_str(), "",
                            nullptr),
                  0);
        Found found;
        std::ifstream in(file);
        for (std::string name, value; std::getline(in, name, '\t') && std::getline(in, value);) {
            found[name].push_back(value);
        }
        std::filesystem::remove(file);
        return found;
    }
};

TEST_F(KarnExecChildTest, ItsNameIsThePath) {
    const Found found = Probe();
    ASSERT_EQ(found.count("argument"), 1U);
    EXPECT_EQ(found.at("argument").size(), 4U);
    EXPECT_EQ(found.at("argument")[0], "/proc/self/exe");
    EXPECT_EQ(found.at("argument")[3], "");
}

TEST_F(KarnExecChildTest, ItHasThreeDescriptorsAllOfTheNullDevice) {
    const int leaked = open("/dev/zero", O_RDONLY);  // not close-on-exec
    const int high = fcntl(leaked, F_DUPFD, 900);
    const Found found = Probe();
    close(leaked);
    close(high);
    EXPECT_THAT(found.at("descriptor"),
                UnorderedElementsAre("0 /dev/null r", "1 /dev/null w", "2 /dev/null w"));
}

TEST_F(KarnExecChildTest, ItHasThemAlsoWhenTheHostClosedItsOwn) {
    const int saved[] = {dup(0), dup(1), dup(2)};
    for (const int fd : {0, 1, 2}) {
        close(fd);
    }
    const Found found = Probe();
    for (const int fd : {0, 1, 2}) {
        dup2(saved[fd], fd);
        close(saved[fd]);
    }
    EXPECT_THAT(found.at("descriptor"),
                UnorderedElementsAre("0 /dev/null r", "1 /dev/null w", "2 /dev/null w"));
}

TEST_F(KarnExecChildTest, ItHasDefaultSignalHandlingAndNothingBlocked) {
    signal(SIGPIPE, SIG_IGN);
    signal(SIGALRM, SIG_IGN);
    signal(SIGCHLD, SIG_IGN);
    sigset_t blocked;
    sigset_t former;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    sigaddset(&blocked, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &blocked, &former);
    const Found found = Probe();
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
    signal(SIGPIPE, SIG_DFL);
    signal(SIGALRM, SIG_DFL);
    EXPECT_THAT(found.count("ignored"), 0U);
    EXPECT_THAT(found.count("blocked"), 0U);
}

TEST_F(KarnExecChildTest, ItsEnvironmentIsFixed) {
    setenv("LANSCOUT_TEST_SECRET", "secret", 1);
    const Found found = Probe();
    unsetenv("LANSCOUT_TEST_SECRET");
    EXPECT_THAT(found.at("environment"),
                UnorderedElementsAre("PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL=C"));
}

// The program's side of it.

void WriteDescriptors(std::ostream& out) {
    for (int fd = 0; fd < 1024; ++fd) {
        const int flags = fcntl(fd, F_GETFL);
        if (flags >= 0) {
            const std::string link = "/proc/self/fd/" + std::to_string(fd);
            out << "descriptor\t" << fd << ' ' << std::filesystem::read_symlink(link).string()
                << ((flags & O_ACCMODE) == O_RDONLY ? " r\n" : " w\n");
        }
    }
}

void WriteSignals(std::ostream& out) {
    sigset_t mask;
    sigprocmask(SIG_SETMASK, nullptr, &mask);
    for (int number = 1; number < SIGRTMAX; ++number) {
        struct sigaction action {};
        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) {
            out << "ignored\t" << number << '\n';
        }
        if (sigismember(&mask, number) == 1) {
            out << "blocked\t" << number << '\n';
        }
    }
}

int WriteWhatIsFound(char** arguments) {
    std::ostringstream found;  // before the file takes a descriptor
    WriteDescriptors(found);
    WriteSignals(found);
    for (char** argument = arguments; *argument != nullptr; ++argument) {
        found << "argument\t" << *argument << '\n';
    }
    for (char** variable = environ; *variable != nullptr; ++variable) {
        found << "environment\t" << *variable << '\n';
    }
    std::ofstream(arguments[2]) << found.str();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 2 && std::string(argv[1]) == "--write-what-you-find") {
        return WriteWhatIsFound(argv);
    }
    ::testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
