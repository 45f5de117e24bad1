// A whole search on a scripted network: its order of calls, its records, its lines and its end.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/support/expectedlog.h"
#include "tests/unit/support/opensearch.h"
#include "tests/unit/support/recordinghost.h"
#include "tests/unit/support/samplereply.h"
#include "tests/unit/support/scriptednetwork.h"

namespace {

using RecordingHost::IsLine;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr bool kBounded = LANSCOUT_BOUNDED != 0;
constexpr const char* kFoundFormat = "Camera found: IP: [%s], port: [%s], hardware: [%s]\n";

auto IsTotal(int count) {
    return IsLine(4, "ThreadFunc", "Total camera found: %d\n",
                  "Total camera found: " + std::to_string(count) + "\n");
}

auto IsFound(const std::string& ip, const std::string& port, const std::string& hardware) {
    return IsLine(
        4, "ThreadFunc", kFoundFormat,
        "Camera found: IP: [" + ip + "], port: [" + port + "], hardware: [" + hardware + "]\n");
}

std::string Reply(const std::string& port, const std::string& hardware) {
    return SampleReply("http://192.168.1.20:" + port + "/onvif/device_service",
                       "onvif://www.onvif.org/hardware/" + hardware);
}

class DiscoveryThread : public testing::Test {
protected:
    DiscoveryThread() {
        RecordingHost::Reset();
        RecordingHost::SetLogLevel(4);
    }

    // One search from start to end on this thread's clock; the list that it leaves.
    static std::vector<ONVIF_CAM_SEARCH_INFO> Run(OpenSearch& search) {
        EXPECT_EQ(search.StartSearch(), 0);
        EXPECT_EQ(search.StopSearch(), 0);
        EXPECT_FALSE(search.IsRunning());
        return search.m_vecCamInfo;
    }

    std::vector<ONVIF_CAM_SEARCH_INFO> Run(int timeout = 2) {
        OpenSearch search("192.168.1.2", timeout);
        return Run(search);
    }

    ScriptedNetwork m_network;
};

TEST_F(DiscoveryThread, OneCycleInItsOrder) {
    m_network.Reply("192.168.1.20", Reply("8080", "IPC-100"));
    m_network.Neighbour("192.168.1.20", {'\x00', '\x0A', '\xFF', 1, 2, 3});
    const auto cameras = Run();
    EXPECT_THAT(m_network.Events(),
                ElementsAre("socket", "bind", "setsockopt", "send NVT", "send DEVICE", "recv",
                            "recv", "arp 192.168.1.20", "close arp", "close"));
    ASSERT_EQ(cameras.size(), 1U);
    EXPECT_EQ(cameras[0].strProtocol, "ONVIF");
    EXPECT_EQ(cameras[0].strHardware, "IPC-100");
    EXPECT_EQ(cameras[0].strIp, "192.168.1.20");
    EXPECT_EQ(cameras[0].strMac, "00:0A:FF:01:02:03");
    EXPECT_EQ(cameras[0].nPort, 8080);
    EXPECT_THAT(RecordingHost::LogLines(),
                ElementsAre(IsFound("192.168.1.20", "8080", "IPC-100"), IsTotal(1)));
}

TEST_F(DiscoveryThread, BothProbesGoOutInEveryCycleNvtFirst) {
    Run(8);  // silences of 3 seconds: cycles at 0, 3 and 6 seconds
    EXPECT_THAT(m_network.Events("send"), ElementsAre("send NVT", "send DEVICE", "send NVT",
                                                      "send DEVICE", "send NVT", "send DEVICE"));
    EXPECT_THAT(RecordingHost::LogLines(), ElementsAre(IsTotal(0)));
}

TEST_F(DiscoveryThread, CycleStartsWhileTheDurationHasNotPassedWhole) {
    Run(3);  // at exactly 3 seconds one more cycle starts
    EXPECT_EQ(m_network.Events("send NVT").size(), 2U);
}

TEST_F(DiscoveryThread, ZeroDurationRunsOneCycle) {
    Run(0);
    EXPECT_EQ(m_network.Events("send NVT").size(), 1U);
}

TEST_F(DiscoveryThread, NegativeDurationSendsNothingAndReportsTheTotal) {
    OpenSearch search("192.168.1.2", -1);
    search.AppendCam("192.168.1.30", "80", "", "N/A");
    Run(search);
    EXPECT_THAT(m_network.Events(), ElementsAre("socket", "bind", "setsockopt", "close"));
    EXPECT_THAT(RecordingHost::LogLines(), ElementsAre(IsTotal(1)));
}

TEST_F(DiscoveryThread, DurationCountsFromWhenTheSocketIsReady) {
    FakeSystem::Current().setsockopt = [this](int, int, int, const void*, socklen_t) {
        m_network.Advance(60'000'000);
        return 0;
    };
    OpenSearch search("192.168.1.2", 2);
    Run(search);
    EXPECT_EQ(search.m_startTime, ScriptedNetwork::kStart + 60);
    EXPECT_EQ(m_network.Events("send NVT").size(), 1U);
}

TEST_F(DiscoveryThread, RepliesAreListedByAddressTextWithinACycle) {
    m_network.Reply("10.0.0.3", Reply("81", "A"));
    m_network.Reply("10.0.0.12", Reply("82", "B"));
    m_network.Silence();
    m_network.Reply("10.0.0.1", Reply("83", "C"));
    const auto cameras = Run(5);
    ASSERT_EQ(cameras.size(), 3U);
    EXPECT_EQ(cameras[0].strIp, "10.0.0.12");
    EXPECT_EQ(cameras[1].strIp, "10.0.0.3");
    EXPECT_EQ(cameras[2].strIp, "10.0.0.1");
    EXPECT_THAT(RecordingHost::LogLines(),
                ElementsAre(IsFound("10.0.0.12", "82", "B"), IsFound("10.0.0.3", "81", "A"),
                            IsFound("10.0.0.1", "83", "C"), IsTotal(3)));
}

TEST_F(DiscoveryThread, SenderIsListedOnceFromItsFirstReply) {
    m_network.Neighbour("192.168.1.20", "abcdef");
    m_network.Reply("192.168.1.20", Reply("81", "first"));
    m_network.Reply("192.168.1.20", Reply("82", "second"));
    m_network.Silence();
    m_network.Reply("192.168.1.20", Reply("83", "third"));
    const auto cameras = Run(5);
    ASSERT_EQ(cameras.size(), 1U);
    EXPECT_EQ(cameras[0].nPort, 81);
    EXPECT_EQ(cameras[0].strHardware, "first");
    EXPECT_EQ(m_network.Events("arp").size(), 1U);  // later cycles only skip it
}

TEST_F(DiscoveryThread, PortTextIsConvertedWithoutChecks) {
    struct Case {
        const char* text;
        int nPort;
    };
    const std::vector<Case> cases{
        {"abc", 0},       {"8080x", 8080},
        {"", 0},          {" 81", 81},
        {"-5", -5},       {"4294967377", 81},
        {"65536", 65536}, {"2147483648", INT32_MIN},
        {"0x50", 0},      {"99999999999999999999", -1},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        m_network.Reply("10.0.0." + std::to_string(10 + i), Reply(cases[i].text, "A"));
    }
    const auto cameras = Run();
    ASSERT_EQ(cameras.size(), cases.size());
    for (std::size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(cameras[i].nPort, cases[i].nPort) << cases[i].text;
    }
}

TEST_F(DiscoveryThread, ReplyWithoutPortKeepsEighty) {
    m_network.Reply("192.168.1.20", SampleReply("http://192.168.1.20/path", ""));
    const auto cameras = Run();
    ASSERT_EQ(cameras.size(), 1U);
    EXPECT_EQ(cameras[0].nPort, 80);
    EXPECT_EQ(cameras[0].strHardware, "");
    EXPECT_THAT(RecordingHost::LogLines(), Contains(IsFound("192.168.1.20", "80", "")));
}

TEST_F(DiscoveryThread, ReplyThatIsNoXmlIsListedWithDefaults) {
    m_network.Reply("192.168.1.20", "no XML");
    m_network.Reply("192.168.1.21", Reply("81", "A"));
    const auto cameras = Run();
    ASSERT_EQ(cameras.size(), 2U);
    EXPECT_EQ(cameras[0].nPort, 80);
    EXPECT_EQ(cameras[0].strHardware, "");
    EXPECT_EQ(cameras[0].strProtocol, "ONVIF");
    EXPECT_EQ(cameras[1].nPort, 81);
}

TEST_F(DiscoveryThread, UnresolvedMacIsNotAvailable) {
    RecordingHost::SetExecl(1);
    m_network.Reply("192.168.1.20", Reply("81", "A"));
    const auto cameras = Run();
    ASSERT_EQ(cameras.size(), 1U);
    EXPECT_EQ(cameras[0].strMac, "N/A");
    EXPECT_EQ(RecordingHost::ExeclRuns().size(), 3U);
}

// The MAC address is looked up before the reply is parsed, and the lock is held for neither.
TEST_F(DiscoveryThread, LookupComesBeforeParsingAndBothWithoutTheLock) {
    std::vector<std::string> order;
    OpenSearch search("192.168.1.2", 2);
    RecordingHost::SetExecl(1, [&] {
        EXPECT_EQ(pthread_mutex_trylock(&search.m_mutex), 0);
        pthread_mutex_unlock(&search.m_mutex);
        order.emplace_back("arping with " + std::to_string(RecordingHost::LogLines().size()));
    });
    m_network.Reply("192.168.1.20", "no XML");
    Run(search);
    // Each arping run logs a line after it; the parser's line is not there yet.
    EXPECT_THAT(order, ElementsAre("arping with 0", "arping with 1", "arping with 2"));
    EXPECT_THAT(RecordingHost::LogMessages(),
                ElementsAre("Failed to update arp table.\n", "Failed to update arp table.\n",
                            "Failed to update arp table.\n",
                            "Parse Probe Match Message to XML Failed: 192.168.1.20\n",
                            "Camera found: IP: [192.168.1.20], port: [80], hardware: []\n",
                            "Total camera found: 1\n"));
}

TEST_F(DiscoveryThread, LockIsTakenForEachRecordAndForTheEnd) {
    std::vector<std::string> seen;
    OpenSearch search("192.168.1.2", 2);
    m_network.Reply("192.168.1.20", Reply("81", "A"));
    m_network.Reply("192.168.1.21", Reply("82", "B"));
    FakeSystem::Current().mutexSeen = [&](const char* what, pthread_mutex_t* mutex) {
        if (mutex == &search.m_mutex) {
            seen.push_back(what + (" " + std::to_string(search.m_vecCamInfo.size())) +
                           (search.m_bRunning ? " running" : " ended"));
        }
    };
    EXPECT_EQ(search.StartSearch(), 0);
    search.StopSearch();
    FakeSystem::Current().mutexSeen = nullptr;
    EXPECT_THAT(seen, ElementsAre("lock 0 running", "unlock 1 running", "lock 1 running",
                                  "unlock 2 running", "lock 2 running", "unlock 2 ended"));
}

TEST_F(DiscoveryThread, TotalIsLoggedUnderTheLockAndBeforeTheClose) {
    std::vector<std::string> seen;
    OpenSearch search("192.168.1.2", -1);
    RecordingHost::SetLogHook([&](const RecordingHost::LogLine& line) {
        seen.push_back(line.message);
        EXPECT_EQ(pthread_mutex_trylock(&search.m_mutex), EBUSY);
        EXPECT_FALSE(search.m_bRunning);
    });
    const auto close = FakeSystem::Current().close;
    FakeSystem::Current().close = [&](int fd) {
        EXPECT_EQ(pthread_mutex_trylock(&search.m_mutex), 0);
        pthread_mutex_unlock(&search.m_mutex);
        seen.emplace_back("close");
        return close(fd);
    };
    Run(search);
    EXPECT_THAT(seen, ElementsAre("Total camera found: 0\n", "close"));
}

TEST_F(DiscoveryThread, SearchEndsAlsoWhenItsLastLineFindsNoMemory) {
    m_network.Reply("192.168.1.20", Reply("81", "A"));
    OpenSearch search("192.168.1.2", 2);
    RecordingHost::SetLogHook([](const RecordingHost::LogLine& line) {
        if (line.message.starts_with("Total")) {
            throw std::bad_alloc();
        }
    });
    EXPECT_EQ(Run(search).size(), 1U);
    EXPECT_THAT(m_network.Events("close"), ElementsAre("close arp", "close"));
    EXPECT_EQ(pthread_mutex_trylock(&search.m_mutex), 0);
    pthread_mutex_unlock(&search.m_mutex);
}

TEST_F(DiscoveryThread, SearchWithoutASocketEndsAlsoWhenItsLinesFindNoMemory) {
    m_network.FailSocket(EMFILE);
    OpenSearch search("192.168.1.2", 2);
    RecordingHost::SetLogHook([](const RecordingHost::LogLine&) { throw std::bad_alloc(); });
    EXPECT_THAT(Run(search), IsEmpty());
    EXPECT_EQ(pthread_mutex_trylock(&search.m_mutex), 0);
    pthread_mutex_unlock(&search.m_mutex);
}

TEST_F(DiscoveryThread, RefusedSocketIsLoggedAndNothingClosed) {
    m_network.FailSocket(EMFILE);
    OpenSearch search("192.168.1.2", 2);
    EXPECT_THAT(Run(search), IsEmpty());
    EXPECT_EQ(search.m_startTime, 0);
    EXPECT_THAT(m_network.Events(), ElementsAre("socket"));
    EXPECT_THAT(RecordingHost::LogLines(),
                ElementsAre(IsLine(1, "ThreadFunc", "Create socket failed. [%d]\n",
                                   "Create socket failed. [24]\n"),
                            IsTotal(0)));
}

TEST_F(DiscoveryThread, SocketIsAnIPv4DatagramSocket) {
    const auto socket = FakeSystem::Current().socket;
    std::vector<int> asked;
    FakeSystem::Current().socket = [&](int domain, int type, int protocol) {
        asked = {domain, type, protocol};
        return socket(domain, type, protocol);
    };
    Run(-1);
    EXPECT_THAT(asked, ElementsAre(2, 2, 0));
}

TEST_F(DiscoveryThread, FailedSetUpIsLoggedAndSocketClosed) {
    m_network.FailBind(EADDRINUSE);
    OpenSearch search("192.168.1.2", 2);
    EXPECT_THAT(Run(search), IsEmpty());
    EXPECT_EQ(search.m_startTime, 0);
    EXPECT_THAT(m_network.Events(), ElementsAre("socket", "bind", "close"));
    EXPECT_THAT(RecordingHost::LogLines(),
                ElementsAre(IsLine(3, "SetupSocketParam", "Bind socket failed. [%d]\n",
                                   "Bind socket failed. [98]\n"),
                            IsLine(3, "ThreadFunc", "SetupSocketParam failed.\n"), IsTotal(0)));
}

TEST_F(DiscoveryThread, FailedFirstSendEndsTheSearchBeforeTheSecond) {
    m_network.FailSend(0, ENETUNREACH);
    Run();
    EXPECT_THAT(m_network.Events(),
                ElementsAre("socket", "bind", "setsockopt", "send NVT", "close"));
    EXPECT_THAT(RecordingHost::LogMessages(),
                ElementsAre("Send probe message failed. [101]\n", "Total camera found: 0\n"));
}

TEST_F(DiscoveryThread, FailedSecondSendEndsTheSearchWithoutReceiving) {
    m_network.FailSend(3, ENETUNREACH);
    m_network.Reply("192.168.1.20", Reply("81", "A"));
    const auto cameras = Run(60);
    EXPECT_EQ(cameras.size(), 1U);  // what the first cycle found stays
    EXPECT_THAT(m_network.Events("send").size(), 4U);
    EXPECT_EQ(m_network.Events("recv").size(), 2U);
    EXPECT_THAT(RecordingHost::LogLines(), Contains(IsTotal(1)));
}

TEST_F(DiscoveryThread, ReceiveErrorsAreWhatSilenceIs) {
    m_network.Error(ENETDOWN);
    m_network.Reply("192.168.1.20", Reply("81", "A"));
    EXPECT_EQ(Run().size(), 1U);
    EXPECT_EQ(m_network.Events("send NVT").size(), 2U);
}

TEST_F(DiscoveryThread, SecondSearchKeepsRecordsAndAddsNewAddressesOnly) {
    OpenSearch search("192.168.1.2", 2);
    m_network.Reply("192.168.1.20", Reply("81", "A"));
    EXPECT_EQ(Run(search).size(), 1U);
    m_network.Reply("192.168.1.20", Reply("99", "Z"));
    m_network.Reply("192.168.1.10", Reply("82", "B"));
    // The first search's socket is closed; the fake opens another one under the same number.
    m_network.Reopen();
    const auto cameras = Run(search);
    ASSERT_EQ(cameras.size(), 2U);
    EXPECT_EQ(cameras[0].nPort, 81);
    EXPECT_EQ(cameras[1].strIp, "192.168.1.10");
    EXPECT_THAT(RecordingHost::LogLines(), Contains(IsTotal(2)));
}

TEST_F(DiscoveryThread, IsRunningUntilTheThreadEnds) {
    OpenSearch search("192.168.1.2", 2);
    m_network.Then([&] { EXPECT_TRUE(search.IsRunning()); });
    EXPECT_FALSE(search.IsRunning());
    Run(search);
    EXPECT_FALSE(search.IsRunning());
}

// A cleared flag stops nothing; only the duration or a failed send does.
TEST_F(DiscoveryThread, RunningFlagIsNotAskedByTheLoop) {
    OpenSearch search("192.168.1.2", 5);
    m_network.Then([&] { search.m_bRunning = false; });
    Run(search);
    EXPECT_EQ(m_network.Events("send NVT").size(), 2U);
}

TEST_F(DiscoveryThread, RefusedThreadIsLoggedAndRunningStaysTrue) {
    FakeSystem::Current().pthreadCreate = [](pthread_t* thread, const pthread_attr_t* attributes,
                                             void* (*)(void*), void*) {
        EXPECT_EQ(attributes, nullptr);
        *thread = 0x5A5A;  // garbage, as a failed call may leave it
        return EAGAIN;
    };
    int joins = 0;
    FakeSystem::Current().pthreadJoin = [&](pthread_t, void**) { return ++joins; };
    {
        OpenSearch search("192.168.1.2", 2);
        EXPECT_EQ(search.StartSearch(), -1);
        EXPECT_THAT(RecordingHost::LogLines(),
                    ElementsAre(IsLine(1, "StartSearch", "Create Thread Failed: [%d]\n",
                                       "Create Thread Failed: [11]\n")));
        EXPECT_TRUE(search.IsRunning());
        EXPECT_EQ(search.m_thread, pthread_t{0});
        EXPECT_EQ(search.StopSearch(), 0);
        EXPECT_TRUE(search.IsRunning());
    }
    EXPECT_EQ(joins, 0);
}

TEST_F(DiscoveryThread, ThreadIsStartedJoinableOnTheObjectWithTheFlagSet) {
    OpenSearch search("192.168.1.2", 2);
    FakeSystem::Current().pthreadCreate = [&](pthread_t* thread, const pthread_attr_t* attributes,
                                              void* (*function)(void*), void* argument) {
        EXPECT_EQ(attributes, nullptr);
        EXPECT_EQ(function, &OpenSearch::ThreadFunc);
        EXPECT_EQ(argument, static_cast<WSDiscoveryBase*>(&search));
        EXPECT_TRUE(search.m_bRunning);
        *thread = 77;
        return 0;
    };
    FakeSystem::Current().pthreadJoin = [](pthread_t, void**) { return 0; };
    EXPECT_EQ(search.StartSearch(), 0);
    EXPECT_EQ(search.m_thread, pthread_t{77});
}

TEST_F(DiscoveryThread, ThreadFunctionReturnsNull) {
    OpenSearch search("192.168.1.2", -1);
    EXPECT_EQ(OpenSearch::ThreadFunc(static_cast<WSDiscoveryBase*>(&search)), nullptr);
}

TEST_F(DiscoveryThread, HandleStaysUntilStop) {
    OpenSearch search("192.168.1.2", -1);
    search.StartSearch();
    EXPECT_NE(search.m_thread, pthread_t{0});
    search.StopSearch();
    EXPECT_EQ(search.m_thread, pthread_t{0});
}

TEST_F(DiscoveryThread, DestructionWaitsForTheSearch) {
    for (int i = 0; i < 30; ++i) {
        m_network.Reply("10.0.0." + std::to_string(i), Reply("81", "A"), i % 2);
    }
    {
        OpenSearch search("192.168.1.2", 2);
        EXPECT_EQ(search.StartSearch(), 0);
    }
    EXPECT_THAT(RecordingHost::LogLines(), Contains(IsTotal(30)));
    EXPECT_EQ(m_network.Events().back(), "close");
}

// For the thread sanitizer: hosts poll all the while, and never see a half-built record.
TEST_F(DiscoveryThread, HostThreadsPollWhileTheListGrows) {
    for (int i = 0; i < 200; ++i) {
        m_network.Reply("10.0.0." + std::to_string(i), Reply("81", "A-hardware-of-some-length"));
    }
    OpenSearch search("192.168.1.2", 2);
    EXPECT_EQ(search.StartSearch(), 0);
    std::vector<std::thread> hosts;
    for (int i = 0; i < 3; ++i) {
        hosts.emplace_back([&search] {
            int seen = 0;
            do {
                const int count = search.CamCountGet();
                EXPECT_GE(count, seen);
                seen = count;
                CAM_SEARCH_INFO info;
                if (count > 0 && search.CamGet(static_cast<unsigned int>(count - 1), info) == 0) {
                    EXPECT_EQ(info.strProtocol, "ONVIF");
                    EXPECT_EQ(info.strHardware, "A-hardware-of-some-length");
                    EXPECT_EQ(info.nPort, 81);
                }
                std::vector<ONVIF_CAM_SEARCH_INFO> list;
                search.CamAllGet(list);
                EXPECT_GE(list.size(), static_cast<std::size_t>(count));
                search.IsTimeout();
            } while (search.IsRunning());
        });
    }
    for (std::thread& host : hosts) {
        host.join();
    }
    EXPECT_EQ(search.CamCountGet(), 200);
    search.StopSearch();
}

TEST_F(DiscoveryThread, SenderOfEmptyDatagramsSetsThePaceOnlyInTheDefaultBuild) {
    for (int i = 0; i < 50; ++i) {
        m_network.Empty();
    }
    Run(8);
    const std::vector<std::int64_t> times = m_network.SendTimes();
    ASSERT_GE(times.size(), 104U);
    for (std::size_t pair = 1; pair <= 50; ++pair) {
        const std::int64_t apart = times[2 * pair] - times[2 * pair - 2];
        EXPECT_EQ(apart, kBounded ? 100'000 : 0) << pair;
        EXPECT_EQ(times[2 * pair + 1], times[2 * pair]);
    }
}

TEST_F(DiscoveryThread, QuietNetworkIsNotSlowedByThePace) {
    Run(5);
    const std::vector<std::int64_t> times = m_network.SendTimes();
    ASSERT_EQ(times.size(), 4U);
    EXPECT_EQ(times[2] - times[0], 3'000'000);
}

TEST_F(DiscoveryThread, ChatteringSenderHoldsTheSearchAsLongAsTheBuildAllows) {
    for (int i = 0; i < 100; ++i) {
        m_network.Reply("192.168.1.20", Reply("81", "A"), 2);
    }
    EXPECT_EQ(Run(5).size(), 1U);
    const std::time_t lasted = m_network.Now() - ScriptedNetwork::kStart;
    if constexpr (kBounded) {
        EXPECT_LE(lasted, 5 + 1 + 30 + 3);
    } else {
        EXPECT_EQ(lasted, 200 + 3);
    }
}

}  // namespace
