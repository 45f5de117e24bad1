#include "finder/machine/confinement.h"

#include <fmt/core.h>
#include <linux/landlock.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>

#include "finder/machine/descriptor.h"

// The address sanitizer reserves terabytes, and takes files and programs to tell what it found.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define LANSCOUT_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define LANSCOUT_SANITIZED 1
#endif
#endif
#ifndef LANSCOUT_SANITIZED
#define LANSCOUT_SANITIZED 0
#endif

namespace Lanscout {
namespace {

constexpr bool kSanitized = LANSCOUT_SANITIZED != 0;
constexpr rlim_t kMegabyte = rlim_t{1} << 20;
constexpr rlim_t kMemoryOfOneThread = 1024 * kMegabyte;
constexpr rlim_t kMemoryOfThreads = 4096 * kMegabyte;  // each has a stack and a heap reserved
constexpr rlim_t kMostDescriptors = 4096;
constexpr rlim_t kCpuSecondsBeyond = 10;

using Filter = std::unique_ptr<void, decltype(&seccomp_release)>;

// Time, memory and what stands open already.
constexpr std::initializer_list<int> kAlways{SCMP_SYS(read),
                                             SCMP_SYS(write),
                                             SCMP_SYS(writev),
                                             SCMP_SYS(readv),
                                             SCMP_SYS(close),
                                             SCMP_SYS(lseek),
                                             SCMP_SYS(fstat),
                                             SCMP_SYS(fcntl),
                                             SCMP_SYS(dup),
                                             SCMP_SYS(recvfrom),
                                             SCMP_SYS(recvmsg),
                                             SCMP_SYS(recvmmsg),
                                             SCMP_SYS(sendto),
                                             SCMP_SYS(sendmsg),
                                             SCMP_SYS(sendmmsg),
                                             SCMP_SYS(setsockopt),
                                             SCMP_SYS(getsockopt),
                                             SCMP_SYS(getsockname),
                                             SCMP_SYS(shutdown),
                                             SCMP_SYS(poll),
                                             SCMP_SYS(ppoll),
                                             SCMP_SYS(select),
                                             SCMP_SYS(pselect6),
                                             SCMP_SYS(epoll_wait),
                                             SCMP_SYS(epoll_pwait),
                                             SCMP_SYS(epoll_ctl),
                                             SCMP_SYS(clock_gettime),
                                             SCMP_SYS(clock_nanosleep),
                                             SCMP_SYS(clock_getres),
                                             SCMP_SYS(nanosleep),
                                             SCMP_SYS(gettimeofday),
                                             SCMP_SYS(time),
                                             SCMP_SYS(futex),
                                             SCMP_SYS(munmap),
                                             SCMP_SYS(mremap),
                                             SCMP_SYS(madvise),
                                             SCMP_SYS(brk),
                                             SCMP_SYS(exit),
                                             SCMP_SYS(exit_group),
                                             SCMP_SYS(rt_sigreturn),
                                             SCMP_SYS(rt_sigaction),
                                             SCMP_SYS(rt_sigprocmask),
                                             SCMP_SYS(restart_syscall),
                                             SCMP_SYS(getpid),
                                             SCMP_SYS(gettid),
                                             SCMP_SYS(getppid),
                                             SCMP_SYS(getuid),
                                             SCMP_SYS(geteuid),
                                             SCMP_SYS(getrandom),
                                             SCMP_SYS(sched_yield),
                                             SCMP_SYS(sched_getaffinity),
                                             SCMP_SYS(membarrier),
                                             SCMP_SYS(uname),
                                             SCMP_SYS(sysinfo),
                                             SCMP_SYS(getrusage)};

constexpr std::initializer_list<int> kSockets{SCMP_SYS(bind), SCMP_SYS(ioctl),
                                              SCMP_SYS(epoll_create1)};

constexpr std::initializer_list<int> kConnections{
    SCMP_SYS(connect), SCMP_SYS(listen),      SCMP_SYS(accept),
    SCMP_SYS(accept4), SCMP_SYS(getpeername), SCMP_SYS(socketpair),
    SCMP_SYS(pipe),    SCMP_SYS(pipe2),       SCMP_SYS(eventfd2)};

constexpr std::initializer_list<int> kThreads{SCMP_SYS(set_robust_list),
                                              SCMP_SYS(rseq),
                                              SCMP_SYS(sched_setscheduler),
                                              SCMP_SYS(sched_getscheduler),
                                              SCMP_SYS(sched_getparam),
                                              SCMP_SYS(sched_setparam),
                                              SCMP_SYS(sched_get_priority_max),
                                              SCMP_SYS(sched_get_priority_min),
                                              SCMP_SYS(prctl)};

// 0, or the error as a positive number.
int Allow(void* filter, std::initializer_list<int> calls) {
    for (const int call : calls) {
        if (const int error = seccomp_rule_add(filter, SCMP_ACT_ALLOW, call, 0); error != 0) {
            return -error;
        }
    }
    return 0;
}

int AllowWhere(void* filter, int call, const scmp_arg_cmp& argument) {
    return -seccomp_rule_add_array(filter, SCMP_ACT_ALLOW, call, 1, &argument);
}

scmp_arg_cmp Masked(unsigned int number, std::uint64_t mask, std::uint64_t value) {
    return {number, SCMP_CMP_MASKED_EQ, mask, value};
}

// No memory is ever run as code.
int AllowMemory(void* filter) {
    const int error = AllowWhere(filter, SCMP_SYS(mmap), Masked(2, PROT_EXEC, 0));
    return error != 0 ? error : AllowWhere(filter, SCMP_SYS(mprotect), Masked(2, PROT_EXEC, 0));
}

// Nobody else is sent a signal; a failed assertion may still end this process.
int AllowAbort(void* filter) {
    const auto self = static_cast<std::uint64_t>(getpid());
    return AllowWhere(filter, SCMP_SYS(tgkill), {0, SCMP_CMP_EQ, self, 0});
}

int AllowSockets(void* filter) {
    for (const int family : {AF_INET, AF_INET6, AF_NETLINK}) {
        const auto value = static_cast<std::uint64_t>(family);
        if (const int error = AllowWhere(filter, SCMP_SYS(socket), {0, SCMP_CMP_EQ, value, 0});
            error != 0) {
            return error;
        }
    }
    return Allow(filter, kSockets);
}

// A thread is a clone that stays in the process. The newer call hides its flags behind a pointer;
// the C library takes the older one where it is told that there is no newer one.
int AllowThreads(void* filter) {
    if (const int error =
            AllowWhere(filter, SCMP_SYS(clone), Masked(0, CLONE_THREAD, CLONE_THREAD));
        error != 0) {
        return error;
    }
    if (const int error = seccomp_rule_add(filter, SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(clone3), 0);
        error != 0) {
        return -error;
    }
    return Allow(filter, kThreads);
}

int LoadFilter(const Freedom& freedom) {
    const Filter filter(seccomp_init(SCMP_ACT_ERRNO(EPERM)), &seccomp_release);
    if (!filter) {
        return ENOMEM;
    }
    int error = Allow(filter.get(), kAlways);
    error = error != 0 ? error : AllowMemory(filter.get());
    error = error != 0 ? error : AllowAbort(filter.get());
    if (error == 0 && freedom.sockets) {
        error = AllowSockets(filter.get());
    }
    if (error == 0 && freedom.connections) {
        error = Allow(filter.get(), kConnections);
    }
    if (error == 0 && freedom.threads) {
        error = AllowThreads(filter.get());
    }
    return error != 0 ? error : -seccomp_load(filter.get());
}

// No file may be opened, made, removed or run from here on.
int CloseFileSystem() {
    constexpr std::uint64_t kEveryRight = (LANDLOCK_ACCESS_FS_MAKE_SYM << 1) - 1;  // of version 1
    landlock_ruleset_attr rights{};
    rights.handled_access_fs = kEveryRight;
    const Descriptor rules(static_cast<int>(
        syscall(SYS_landlock_create_ruleset, &rights, sizeof rights.handled_access_fs, 0)));
    if (!rules || syscall(SYS_landlock_restrict_self, rules.Fd(), 0) != 0) {
        return errno;
    }
    return 0;
}

void Limit(__rlimit_resource resource, rlim_t most) {
    rlimit limit{};
    getrlimit(resource, &limit);
    limit.rlim_cur = std::min(limit.rlim_cur, most);
    limit.rlim_max = std::min(limit.rlim_max, most);
    setrlimit(resource, &limit);
}

void SetLimits(const Freedom& freedom) {
    const auto seconds = static_cast<rlim_t>(freedom.time.count());
    constexpr rlim_t kThreadsAtOnce = 4;
    Limit(RLIMIT_AS, freedom.threads ? kMemoryOfThreads : kMemoryOfOneThread);
    Limit(RLIMIT_CPU, (freedom.threads ? kThreadsAtOnce : 1) * seconds + kCpuSecondsBeyond);
    Limit(RLIMIT_NOFILE, kMostDescriptors);
    Limit(RLIMIT_CORE, 0);
    Limit(RLIMIT_FSIZE, 0);
}

}  // namespace

std::vector<std::string> GiveUpRights(const Freedom& freedom) {
    if (kSanitized) {
        return {};
    }
    std::vector<std::string> missing;
    const auto note = [&](const char* what, int error) {
        if (error != 0) {
            missing.push_back(fmt::format("{}: {}", what, std::strerror(error)));
        }
    };
    SetLimits(freedom);
    note("new privileges are not given up",
         prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 ? 0 : errno);
    note("the file system is not given up (Landlock)", CloseFileSystem());
    note("system calls are not given up (seccomp)", LoadFilter(freedom));
    return missing;
}

}  // namespace Lanscout
