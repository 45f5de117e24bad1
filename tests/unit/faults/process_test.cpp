// Searches on real sockets and threads, with the stand-alone host, in a process that lacks what
// they need, or forks, or never stops searching. What is left behind is counted.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "control/standalonehost.h"
#include "host/zellog.h"
#include "tests/unit/support/fakesystem.h"
#include "tests/unit/support/opensearch.h"
#include "tests/unit/support/samplereply.h"

extern "C" {
int __real_bind(int, const sockaddr*, socklen_t);
ssize_t __real_sendto(int, const void*, size_t, int, const sockaddr*, socklen_t);
int __real_close(int);
}

namespace {

#ifdef __SANITIZE_THREAD__
constexpr std::ptrdiff_t kThreadsOfAChild = 2;  // the sanitizer may start its own
#else
constexpr std::ptrdiff_t kThreadsOfAChild = 1;
#endif

const std::string kCamera = "127.0.78.1";

std::ptrdiff_t CountIn(const char* folder) {
    namespace fs = std::filesystem;
    return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}

bool HasChild() {
    siginfo_t info{};
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

sockaddr_in Address(const std::string& ip) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    inet_aton(ip.c_str(), &address.sin_addr);
    return address;
}

// A camera that answers the first Probe of each cycle on loopback, and the second with an empty
// datagram, which ends the cycle without a wait. The clock of each search stands still but for two
// seconds that pass with each cycle. The searches' ports are any, so that nobody holds them.
class LoopbackCamera {
public:
    LoopbackCamera() : m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        const sockaddr_in address = Address(kCamera);
        EXPECT_EQ(
            __real_bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        FakeSystem::Calls& calls = FakeSystem::Current();
        calls.bind = [](int fd, const sockaddr* wanted, socklen_t length) {
            sockaddr_in any;
            memcpy(&any, wanted, sizeof(any));
            any.sin_port = 0;
            return __real_bind(fd, reinterpret_cast<const sockaddr*>(&any), length);
        };
        calls.sendto = [this](int fd, const void* data, size_t size, int, const sockaddr*,
                              socklen_t) {
            Answer(fd, {static_cast<const char*>(data), size});
            return static_cast<ssize_t>(size);
        };
        calls.ioctl = [](int, unsigned long, void* request) {
            static_cast<arpreq*>(request)->arp_flags = ATF_COM;
            return 0;
        };
        calls.clockGettime = [](clockid_t) {
            static std::atomic<time_t> Seconds = 0;
            return timespec{++Seconds, 0};  // so that no search waits before it probes
        };
        calls.time = [] { return std::time_t{1000} + 2 * t_nCycles; };
    }
    ~LoopbackCamera() { __real_close(m_socket); }
    LoopbackCamera(const LoopbackCamera&) = delete;
    LoopbackCamera& operator=(const LoopbackCamera&) = delete;

private:
    void Answer(int searcher, std::string_view probe) {
        sockaddr_in to{};
        socklen_t length = sizeof(to);
        ASSERT_EQ(getsockname(searcher, reinterpret_cast<sockaddr*>(&to), &length), 0);
        const bool first = probe.find("NetworkVideoTransmitter") != std::string_view::npos;
        const std::string reply = first ? m_reply : "";
        EXPECT_EQ(__real_sendto(m_socket, reply.data(), reply.size(), 0,
                                reinterpret_cast<const sockaddr*>(&to), length),
                  static_cast<ssize_t>(reply.size()));
        t_nCycles += first ? 0 : 1;
    }

    static thread_local int t_nCycles;  // of the search whose thread it is
    FakeSystem::Scope m_scope;
    const std::string m_reply = SampleReply("http://127.0.78.1:8080/onvif/device_service",
                                            "onvif://www.onvif.org/hardware/IPC-100");
    int m_socket;
};

thread_local int LoopbackCamera::t_nCycles = 0;

// Lines go nowhere, and what the test leaves behind is counted at its end.
class ProcessFault : public testing::Test {
protected:
    ProcessFault() {
        StandaloneHost::AttachLogConfig();
        StandaloneHost::SetCategoryLevel(LOG_CATEG_DISCOVERY, LOG_LEVEL_INFO);
        m_nStandardError = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(null, STDERR_FILENO);
        __real_close(null);
        std::thread([] {}).join();  // the thread sanitizer starts one of its own with the first
        { const OpenSearch warmUp("127.0.77.1", -1); }
        m_nDescriptors = CountIn("/proc/self/fd");
        m_nThreads = CountIn("/proc/self/task");
    }
    ~ProcessFault() override {
        EXPECT_EQ(CountIn("/proc/self/fd"), m_nDescriptors);
        EXPECT_EQ(CountIn("/proc/self/task"), m_nThreads);
        EXPECT_FALSE(HasChild());
        dup2(m_nStandardError, STDERR_FILENO);
        __real_close(m_nStandardError);
        StandaloneHost::DetachLogConfig();
    }

    // One search of one cycle, start to end. What it lists, "ip port hardware mac".
    static std::string Search(OpenSearch& search) {
        EXPECT_EQ(search.StartSearch(), 0);
        search.StopSearch();
        EXPECT_FALSE(search.IsRunning());
        return Listed(search);
    }

    static std::string Listed(OpenSearch& search) {
        std::string listed;
        for (const ONVIF_CAM_SEARCH_INFO& info : search.m_vecCamInfo) {
            listed += info.strIp + " " + std::to_string(info.nPort) + " " + info.strHardware + " " +
                      info.strMac + "\n";
        }
        return listed;
    }

    static constexpr const char* kFound = "127.0.78.1 8080 IPC-100 00:00:00:00:00:00\n";
    static constexpr const char* kFoundWithoutMac = "127.0.78.1 8080 IPC-100 N/A\n";

private:
    int m_nStandardError;
    std::ptrdiff_t m_nDescriptors;
    std::ptrdiff_t m_nThreads;
};

// The exit status of what a forked child does; a child that hangs is ended by its alarm.
int InChild(const std::function<int()>& what) {
    const pid_t pid = fork();
    if (pid == 0) {
        alarm(20);
        _exit(what());
    }
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

TEST_F(ProcessFault, HundredSearchesOneAfterTheOther) {
    const LoopbackCamera camera;
    for (int i = 0; i < 100; ++i) {
        OpenSearch search("127.0.77.1", 1);
        ASSERT_EQ(Search(search), kFound) << i;
    }
}

TEST_F(ProcessFault, HundredSearchesOnOneObject) {
    const LoopbackCamera camera;
    OpenSearch search("127.0.77.1", 1);
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(Search(search), kFound) << i;
    }
}

TEST_F(ProcessFault, SixteenSearchesAtOnceOnSixteenAddresses) {
    const LoopbackCamera camera;
    for (int round = 0; round < 5; ++round) {
        std::vector<std::unique_ptr<OpenSearch>> searches;
        for (int i = 1; i <= 16; ++i) {
            searches.push_back(std::make_unique<OpenSearch>("127.0.77." + std::to_string(i), 7));
            ASSERT_EQ(searches.back()->StartSearch(), 0);
        }
        for (const auto& search : searches) {
            search->StopSearch();
            EXPECT_FALSE(search->IsRunning());
            EXPECT_EQ(Listed(*search), kFound);
        }
    }
}

TEST_F(ProcessFault, ObjectDestroyedWhileSearchingWaitsForItsThread) {
    const LoopbackCamera camera;
    for (int i = 0; i < 20; ++i) {
        OpenSearch search("127.0.77.1", 7);
        ASSERT_EQ(search.StartSearch(), 0);
    }
}

// No descriptor can be opened in its scope beyond those that are, and `spare` more.
class DescriptorLimit {
public:
    explicit DescriptorLimit(rlim_t spare) {
        getrlimit(RLIMIT_NOFILE, &m_former);
        int lowest = fcntl(STDERR_FILENO, F_DUPFD, 0);
        __real_close(lowest);
        rlimit limit = m_former;
        limit.rlim_cur = static_cast<rlim_t>(lowest) + spare;
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    }
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &m_former); }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

private:
    rlimit m_former{};
};

TEST_F(ProcessFault, WithoutADescriptorASearchEndsAndTheNextOneFindsAll) {
    const LoopbackCamera camera;
    OpenSearch search("127.0.77.1", 1);
    {
        const DescriptorLimit limit(0);
        EXPECT_EQ(Search(search), "");
    }
    EXPECT_EQ(Search(search), kFound);
}

TEST_F(ProcessFault, WithOneDescriptorTheCameraIsListedWithoutMac) {
    const LoopbackCamera camera;
    OpenSearch search("127.0.77.1", 1);
    {
        const DescriptorLimit limit(1);
        EXPECT_EQ(Search(search), kFoundWithoutMac);
    }
    EXPECT_EQ(Search(search), kFoundWithoutMac);  // a listed camera is not looked up again
}

TEST_F(ProcessFault, WithoutThreadsNoSearchStartsAndStopReturns) {
    EXPECT_EQ(
        InChild([] {
            const rlimit none{1, 1};
            if ((getuid() == 0 && setuid(65534) != 0) || setrlimit(RLIMIT_NPROC, &none) != 0) {
                return 2;
            }
            const auto threads = CountIn("/proc/self/task");  // a sanitizer may have one of its own
            OpenSearch search("127.0.77.1", 1);
            return search.StartSearch() == -1 && search.StopSearch() == 0 && search.IsRunning() &&
                           CountIn("/proc/self/task") == threads
                       ? 0
                       : 1;
        }),
        0);
}

TEST_F(ProcessFault, PortThatAnotherSocketHoldsIsLeftToIt) {
    const FakeSystem::Scope scope;
    const int holder = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = Address("127.0.77.99");
    address.sin_port = htons(3702);
    ASSERT_EQ(bind(holder, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    OpenSearch search("127.0.77.99", 5);
    EXPECT_EQ(Search(search), "");
    EXPECT_EQ(send(holder, "", 0, MSG_DONTWAIT), -1);  // still its owner's, still not connected
    EXPECT_EQ(errno, EDESTADDRREQ);
    __real_close(holder);
}

void LogLine(int number) {
    ZelPrintf(LOG_TYPE{}, "category", "level", "file", number, "function", "line %d\n", number);
}

void IgnoreLine(const StandaloneHost::LogRecord&, void*) {}

// Threads that log all the while, as those of a server with many searches do.
class LoggingThreads {
public:
    LoggingThreads() {
        for (int i = 0; i < 3; ++i) {
            m_threads.emplace_back([this] {
                while (!m_bStop) {
                    LogLine(0);
                }
            });
        }
    }
    ~LoggingThreads() {
        m_bStop = true;
        for (std::thread& thread : m_threads) {
            thread.join();
        }
    }
    LoggingThreads(const LoggingThreads&) = delete;
    LoggingThreads& operator=(const LoggingThreads&) = delete;

private:
    std::atomic<bool> m_bStop = false;
    std::vector<std::thread> m_threads;
};

TEST_F(ProcessFault, ChildrenOfAProcessThatLogsCanLog) {
    const LoggingThreads threads;
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(InChild([] {
                      LogLine(1);
                      return 7;
                  }),
                  7)
            << i;
    }
}

TEST_F(ProcessFault, ChildrenOfAProcessThatLogsToASinkCanLogAndSetTheirOwn) {
    StandaloneHost::SetLogSink(IgnoreLine, nullptr);
    {
        const LoggingThreads threads;
        for (int i = 0; i < 100; ++i) {
            ASSERT_EQ(InChild([] {
                          LogLine(1);
                          StandaloneHost::SetLogSink(nullptr, nullptr);
                          LogLine(2);
                          return 7;
                      }),
                      7)
                << i;
        }
    }
    StandaloneHost::SetLogSink(nullptr, nullptr);
}

void ForkInSink(const StandaloneHost::LogRecord&, void* status) {
    const pid_t pid = fork();
    if (pid == 0) {
        alarm(20);
    } else {
        waitpid(pid, static_cast<int*>(status), 0);
    }
}

TEST_F(ProcessFault, SinkMayFork) {
    int status = -1;
    const pid_t parent = getpid();
    StandaloneHost::SetLogSink(ForkInSink, &status);
    LogLine(1);
    StandaloneHost::SetLogSink(nullptr, nullptr);
    if (getpid() != parent) {
        LogLine(2);
        _exit(7);
    }
    EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 7);
}

TEST_F(ProcessFault, ForkDuringASearchLeavesBothProcessesWell) {
    const LoopbackCamera camera;
    for (int i = 0; i < 20; ++i) {
        OpenSearch search("127.0.77.1", 21);
        ASSERT_EQ(search.StartSearch(), 0);
        ASSERT_EQ(InChild([] {
                      LogLine(1);
                      return CountIn("/proc/self/task") <= kThreadsOfAChild ? 7 : 8;
                  }),
                  7);
        search.StopSearch();
        ASSERT_EQ(Listed(search), kFound);
    }
}

}  // namespace
