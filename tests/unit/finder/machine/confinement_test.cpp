#include "finder/machine/confinement.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <functional>
#include <new>
#include <thread>

using namespace Lanscout;

namespace {

constexpr Freedom kNone{.time = std::chrono::seconds(5)};
constexpr Freedom kSockets{.sockets = true, .time = std::chrono::seconds(5)};
constexpr Freedom kAll{
    .sockets = true, .connections = true, .threads = true, .time = std::chrono::seconds(5)};

bool refuseLandlock = false;
bool refuseSeccomp = false;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// What `act` returns in a process of its own that has given up its rights; -1 when it died.
int Confined(const Freedom& freedom, const std::function<int()>& act) {
    const pid_t pid = fork();
    if (pid == 0) {
        GiveUpRights(freedom);
        _exit(act());
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// 0, or errno.
int Error(long result) {
    return result < 0 ? errno : 0;
}

int Connect(int socket) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(9);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return Error(connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address));
}

int Fork() {
    const pid_t pid = fork();
    if (pid == 0) {
        _exit(0);
    }
    return Error(pid);
}

class ConfinementTest : public testing::TestWithParam<Freedom> {
protected:
    void SetUp() override {
        if (kSanitized) {
            GTEST_SKIP() << "nothing is given up under a sanitizer";
        }
    }
};

}  // namespace

extern "C" {

int __real_seccomp_load(scmp_filter_ctx filter);
int __wrap_seccomp_load(scmp_filter_ctx filter) {
    return refuseSeccomp ? -EINVAL : __real_seccomp_load(filter);
}

long __wrap_syscall(long number, long a, long b, long c);
long __real_syscall(long number, long a, long b, long c);
long __wrap_syscall(long number, long a, long b, long c) {
    if (refuseLandlock) {
        errno = EOPNOTSUPP;
        return -1;
    }
    return __real_syscall(number, a, b, c);
}
}

TEST_P(ConfinementTest, NoFileIsOpened) {
    EXPECT_NE(Confined(GetParam(), [] { return Error(open("/proc/self/status", O_RDONLY)); }), 0);
    EXPECT_NE(Confined(GetParam(), [] { return Error(open("/tmp/x", O_WRONLY | O_CREAT, 0600)); }),
              0);
}

TEST_P(ConfinementTest, NoProgramIsRun) {
    EXPECT_EQ(Confined(GetParam(), [] { return Error(execl("/bin/true", "true", nullptr)); }),
              EPERM);
}

TEST_P(ConfinementTest, NoProcessIsStarted) {
    EXPECT_EQ(Confined(GetParam(), &Fork), EPERM);
}

TEST_P(ConfinementTest, NobodyIsSentASignal) {
    const pid_t self = getpid();
    EXPECT_EQ(Confined(GetParam(), [self] { return Error(kill(self, 0)); }), EPERM);
}

TEST_P(ConfinementTest, NoMemoryIsRunAsCode) {
    EXPECT_EQ(Confined(GetParam(),
                       [] {
                           void* const bytes = mmap(nullptr, 4096, PROT_READ | PROT_EXEC,
                                                    MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
                           return Error(bytes == MAP_FAILED ? -1 : 0);
                       }),
              EPERM);
}

TEST_P(ConfinementTest, NoPrivilegeIsGained) {
    const pid_t pid = fork();
    if (pid == 0) {
        refuseSeccomp = true;  // which would refuse the question, too
        GiveUpRights(GetParam());
        _exit(prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0));
    }
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 1);
}

TEST_P(ConfinementTest, MemoryHasAnEnd) {
    EXPECT_EQ(Confined(GetParam(),
                       [] {
                           constexpr std::size_t kFiveGigabytes = std::size_t{5} << 30;
                           void* const bytes = mmap(nullptr, kFiveGigabytes, PROT_READ,
                                                    MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
                           return Error(bytes == MAP_FAILED ? -1 : 0);
                       }),
              ENOMEM);
}

TEST_P(ConfinementTest, ProcessorTimeHasAnEnd) {
    const pid_t pid = fork();
    if (pid == 0) {
        refuseSeccomp = true;  // which would refuse the question, too
        GiveUpRights(GetParam());
        rlimit limit{};
        getrlimit(RLIMIT_CPU, &limit);
        _exit(limit.rlim_cur < 60 ? 0 : 1);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_P(ConfinementTest, WhatIsOpenGoesOnWorking) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    EXPECT_EQ(Confined(GetParam(), [&] { return Error(write(ends[1], "text", 4)); }), 0);
    std::array<char, 8> bytes{};
    EXPECT_EQ(read(ends[0], bytes.data(), bytes.size()), 4);
    close(ends[0]);
    close(ends[1]);
}

TEST_P(ConfinementTest, FailedAssertionStillEndsTheProcess) {
    EXPECT_EQ(Confined(GetParam(),
                       []() -> int {
                           signal(SIGABRT, SIG_DFL);
                           abort();
                       }),
              -1);
}

INSTANTIATE_TEST_SUITE_P(Freedom, ConfinementTest, testing::Values(kNone, kSockets, kAll),
                         [](const auto& parameter) {
                             return parameter.param.threads   ? "All"
                                    : parameter.param.sockets ? "Sockets"
                                                              : "None";
                         });

TEST_F(ConfinementTest, SocketsAreMadeWhereTheyAreNeeded) {
    const auto make = [] { return Error(socket(AF_INET, SOCK_DGRAM, 0)); };
    EXPECT_EQ(Confined(kNone, make), EPERM);
    EXPECT_EQ(Confined(kSockets, make), 0);
    EXPECT_EQ(Confined(kSockets, [] { return Error(socket(AF_UNIX, SOCK_DGRAM, 0)); }), EPERM);
    EXPECT_EQ(Confined(kAll, [] { return Error(socket(AF_PACKET, SOCK_RAW, 0)); }), EPERM);
}

TEST_F(ConfinementTest, NothingIsConnectedToWithoutNeed) {
    const int before = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(Confined(kNone, [=] { return Connect(before); }), EPERM);
    EXPECT_EQ(Confined(kSockets, [=] { return Connect(before); }), EPERM);
    EXPECT_EQ(Confined(kAll, [=] { return Connect(before); }), ECONNREFUSED);
    EXPECT_EQ(Confined(kSockets, [=] { return Error(listen(before, 1)); }), EPERM);
    close(before);
}

TEST_F(ConfinementTest, ThreadsAreStartedWhereTheyAreNeeded) {
    const auto start = [] {
        try {
            std::thread([] {}).join();
            return 0;
        } catch (const std::system_error&) {
            return 1;
        }
    };
    EXPECT_EQ(Confined(kSockets, start), 1);
    EXPECT_EQ(Confined(kAll, start), 0);
}

TEST_F(ConfinementTest, KernelWithoutOneOfTheMeansIsSaidAndNoFailure) {
    const pid_t pid = fork();
    if (pid == 0) {
        refuseLandlock = true;
        refuseSeccomp = true;
        const std::vector<std::string> missing = GiveUpRights(kNone);
        const bool said = missing.size() == 2 && missing[0].find("Landlock") != std::string::npos &&
                          missing[1].find("seccomp") != std::string::npos;
        _exit(said ? 0 : 1);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 0);
}
