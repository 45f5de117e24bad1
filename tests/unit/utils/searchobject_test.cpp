// The search object without a search: construction, result list, time-out, stop, destruction.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/support/expectedlog.h"
#include "tests/unit/support/fakesystem.h"
#include "tests/unit/support/opensearch.h"
#include "tests/unit/support/recordinghost.h"

namespace {

using RecordingHost::IsLine;
using testing::ElementsAre;
using testing::IsEmpty;

class SearchObject : public testing::Test {
protected:
    SearchObject() { RecordingHost::Reset(); }

    static void ExpectUnknownInterface(const OpenSearch& search) {
        EXPECT_EQ(search.m_strIfName, "");
        EXPECT_THAT(RecordingHost::LogLines(),
                    ElementsAre(IsLine(3, "WSDiscoveryBase", "Get interface failed\n")));
    }

    FakeSystem::Scope m_scope;
};

TEST_F(SearchObject, ConstructionLooksUpTheInterface) {
    const OpenSearch search("192.168.1.2", 5);
    EXPECT_THAT(RecordingHost::NetAskedFor(), ElementsAre("192.168.1.2"));
    EXPECT_EQ(search.m_strIfName, "eth7");
    EXPECT_EQ(search.m_strIp, "192.168.1.2");
    EXPECT_EQ(search.m_timeout, 5);
    EXPECT_EQ(search.m_thread, pthread_t{0});
    EXPECT_FALSE(search.m_bRunning);
    EXPECT_EQ(search.m_startTime, 0);
    EXPECT_THAT(search.m_vecCamInfo, IsEmpty());
    EXPECT_THAT(RecordingHost::LogLines(), IsEmpty());
}

TEST_F(SearchObject, AnyTextIsTakenAsAddress) {
    const OpenSearch search("", -3);
    EXPECT_THAT(RecordingHost::NetAskedFor(), ElementsAre(""));
    EXPECT_EQ(search.m_strIp, "");
    EXPECT_EQ(search.m_timeout, -3);
}

TEST_F(SearchObject, LookupResultsOtherThanOneAreFailures) {
    for (const int result : {0, -1, 2}) {
        RecordingHost::Reset();
        RecordingHost::SetNetAnswer({result, 1, "eth7"});
        ExpectUnknownInterface(OpenSearch("192.168.1.2", 5));
    }
}

TEST_F(SearchObject, InterfaceWithZeroFlagIsFailure) {
    RecordingHost::SetNetAnswer({1, 0, "eth7"});
    ExpectUnknownInterface(OpenSearch("192.168.1.2", 5));
}

TEST_F(SearchObject, AnyNonzeroFlagIsUsable) {
    RecordingHost::SetNetAnswer({1, -2, "wlan0"});
    EXPECT_EQ(OpenSearch("192.168.1.2", 5).m_strIfName, "wlan0");
}

TEST_F(SearchObject, FailedLookupLeavesUsableObject) {
    RecordingHost::SetNetAnswer({0, 1, "eth7"});
    OpenSearch search("192.168.1.2", 5);
    EXPECT_FALSE(search.IsRunning());
    EXPECT_EQ(search.CamCountGet(), 0);
    EXPECT_EQ(search.m_thread, pthread_t{0});
    EXPECT_EQ(search.StopSearch(), 0);
}

TEST_F(SearchObject, GateDecidesOnInterfaceLine) {
    RecordingHost::SetNetAnswer({0, 1, "eth7"});
    RecordingHost::SetLogLevel(2);
    const OpenSearch search("192.168.1.2", 5);
    EXPECT_THAT(RecordingHost::LogLines(), IsEmpty());
}

TEST_F(SearchObject, RecordIsCopiedFieldByField) {
    OpenSearch search("192.168.1.2", 5);
    search.AppendCam("192.168.1.20", "8080", "IPC-100", "00:0A:FF:01:02:03");
    CAM_SEARCH_INFO info;
    ASSERT_EQ(search.CamGet(0, info), 0);
    EXPECT_EQ(info.strProtocol, "ONVIF");
    EXPECT_EQ(info.strHardware, "IPC-100");
    EXPECT_EQ(info.strIp, "192.168.1.20");
    EXPECT_EQ(info.strMac, "00:0A:FF:01:02:03");
    EXPECT_EQ(info.nPort, 8080);
}

TEST_F(SearchObject, LongTextsAreCopiedWhole) {
    OpenSearch search("192.168.1.2", 5);
    const std::string hardware(5000, 'h');
    search.AppendCam("192.168.1.20", "80", hardware, "N/A");
    CAM_SEARCH_INFO info;
    ASSERT_EQ(search.CamGet(0, info), 0);
    EXPECT_EQ(info.strHardware, hardware);
}

TEST_F(SearchObject, IndexAtOrBeyondCountLeavesRecordUntouched) {
    OpenSearch search("192.168.1.2", 5);
    CAM_SEARCH_INFO info{"a", "b", "c", "d", 4};
    for (const unsigned int index : {0U, 1U, 0xFFFFFFFFU}) {
        EXPECT_EQ(search.CamGet(index, info), -1);
    }
    search.AppendCam("192.168.1.20", "80", "", "N/A");
    EXPECT_EQ(search.CamGet(static_cast<unsigned int>(search.CamCountGet()), info), -1);
    EXPECT_EQ(info.strProtocol, "a");
    EXPECT_EQ(info.strHardware, "b");
    EXPECT_EQ(info.strIp, "c");
    EXPECT_EQ(info.strMac, "d");
    EXPECT_EQ(info.nPort, 4);
    EXPECT_THAT(RecordingHost::LogLines(), IsEmpty());
}

TEST_F(SearchObject, WholeListReplacesFormerContents) {
    OpenSearch search("192.168.1.2", 5);
    search.AppendCam("192.168.1.20", "80", "", "N/A");
    search.AppendCam("192.168.1.3", "81", "", "N/A");
    std::vector<ONVIF_CAM_SEARCH_INFO> list(5);
    EXPECT_EQ(search.CamAllGet(list), 0);
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[0].strIp, "192.168.1.20");  // in the order of finding
    EXPECT_EQ(list[1].strIp, "192.168.1.3");
    EXPECT_EQ(list[1].nPort, 81);
    EXPECT_EQ(search.CamCountGet(), 2);
}

TEST_F(SearchObject, WholeEmptyListEmptiesTheCallers) {
    OpenSearch search("192.168.1.2", 5);
    std::vector<ONVIF_CAM_SEARCH_INFO> list(5);
    EXPECT_EQ(search.CamAllGet(list), 0);
    EXPECT_THAT(list, IsEmpty());
}

TEST_F(SearchObject, DuplicateIsExactText) {
    OpenSearch search("192.168.1.2", 5);
    EXPECT_FALSE(search.IsDuplicatedCam("192.168.1.1"));
    EXPECT_FALSE(search.IsDuplicatedCam(""));
    search.AppendCam("192.168.1.10", "80", "", "N/A");
    EXPECT_FALSE(search.IsDuplicatedCam("192.168.1.1"));
    EXPECT_FALSE(search.IsDuplicatedCam("192.168.1.100"));
    search.AppendCam("192.168.1.1", "80", "", "N/A");
    EXPECT_TRUE(search.IsDuplicatedCam("192.168.1.1"));
    EXPECT_TRUE(search.IsDuplicatedCam("192.168.1.10"));
    search.AppendCam("a", "80", "", "N/A");
    EXPECT_FALSE(search.IsDuplicatedCam("A"));
    EXPECT_FALSE(search.IsDuplicatedCam(std::string("a\0", 2)));
}

TEST_F(SearchObject, TimeIsUpOnlyAfterMoreThanTheDuration) {
    OpenSearch search("192.168.1.2", 5);
    search.m_startTime = 1000;
    time_t now = 1000;
    FakeSystem::Current().time = [&now] { return now; };
    for (now = 1000; now <= 1005; ++now) {
        EXPECT_FALSE(search.IsTimeout()) << now;
    }
    EXPECT_EQ(now, 1006);
    EXPECT_TRUE(search.IsTimeout());
    now = 900;  // a clock set back
    EXPECT_FALSE(search.IsTimeout());
}

TEST_F(SearchObject, NegativeDurationIsAlwaysUp) {
    OpenSearch search("192.168.1.2", -1);
    search.m_startTime = 1000;
    FakeSystem::Current().time = [] { return time_t{1000}; };
    EXPECT_TRUE(search.IsTimeout());
}

TEST_F(SearchObject, LargestDurationsDoNotOverflow) {
    OpenSearch longest("192.168.1.2", INT32_MAX);
    OpenSearch shortest("192.168.1.2", INT32_MIN);
    FakeSystem::Current().time = [] { return time_t{INT32_MAX}; };
    EXPECT_FALSE(longest.IsTimeout());
    EXPECT_TRUE(shortest.IsTimeout());
}

TEST_F(SearchObject, StopWithoutSearchReturnsAtOnce) {
    OpenSearch search("192.168.1.2", 5);
    int joins = 0;
    FakeSystem::Current().pthreadJoin = [&joins](pthread_t, void**) { return ++joins; };
    EXPECT_EQ(search.StopSearch(), 0);
    EXPECT_EQ(search.StopSearch(), 0);
    EXPECT_EQ(joins, 0);
}

TEST_F(SearchObject, StopJoinsOnceAndLeavesRunningFlag) {
    std::vector<pthread_t> joined;
    int locks = 0;
    OpenSearch search("192.168.1.2", 5);
    FakeSystem::Current().pthreadJoin = [&joined](pthread_t thread, void** result) {
        joined.push_back(thread);
        EXPECT_EQ(result, nullptr);
        return 3;  // whatever join says
    };
    search.m_thread = 77;
    search.m_bRunning = true;
    FakeSystem::Current().mutexSeen = [&](const char*, pthread_mutex_t* mutex) {
        locks += mutex == &search.m_mutex ? 1 : 0;
    };
    EXPECT_EQ(search.StopSearch(), 0);
    EXPECT_EQ(search.StopSearch(), 0);
    EXPECT_THAT(joined, ElementsAre(77));
    EXPECT_EQ(search.m_thread, pthread_t{0});
    EXPECT_TRUE(search.m_bRunning);
    EXPECT_EQ(locks, 0);
}

TEST_F(SearchObject, QueriesHoldTheLockOnceAndReleaseIt) {
    std::vector<std::string> seen;
    OpenSearch search("192.168.1.2", 5);
    search.AppendCam("192.168.1.20", "80", "", "N/A");
    FakeSystem::Current().mutexSeen = [&](const char* what, pthread_mutex_t* mutex) {
        if (mutex == &search.m_mutex) {
            seen.emplace_back(what);
        }
    };
    CAM_SEARCH_INFO info;
    std::vector<ONVIF_CAM_SEARCH_INFO> list;
    search.IsRunning();
    search.CamCountGet();
    search.CamGet(0, info);
    search.CamGet(1, info);
    search.CamAllGet(list);
    search.AppendCam("192.168.1.21", "80", "", "N/A");
    std::vector<std::string> expected;
    for (int i = 0; i < 6; ++i) {
        expected.insert(expected.end(), {"lock", "unlock"});
    }
    EXPECT_EQ(seen, expected);
    seen.clear();
    search.IsTimeout();
    search.IsDuplicatedCam("192.168.1.20");
    EXPECT_THAT(seen, IsEmpty());
}

TEST_F(SearchObject, DestructionJoinsThenReleasesThenLocksUnlocksAndDestroys) {
    std::vector<std::string> seen;
    {
        OpenSearch search("192.168.1.2", 5);
        search.m_strIfName = std::string(100, 'i');
        search.m_strIp = std::string(100, 'a');
        search.AppendCam("192.168.1.20", "80", "", "N/A");
        search.m_thread = 77;
        FakeSystem::Current().pthreadJoin = [&](pthread_t, void**) {
            EXPECT_EQ(search.m_vecCamInfo.size(), 1U);
            seen.emplace_back("join");
            return 0;
        };
        FakeSystem::Current().mutexSeen = [&](const char* what, pthread_mutex_t* mutex) {
            if (mutex == &search.m_mutex) {
                EXPECT_EQ(search.m_vecCamInfo.capacity(), 0U);
                EXPECT_EQ(search.m_strIfName, "");
                EXPECT_EQ(search.m_strIp, "");
                seen.emplace_back(what);
            }
        };
    }
    EXPECT_THAT(seen, ElementsAre("join", "lock", "unlock", "destroy"));
}

TEST_F(SearchObject, DestructionWaitsForWhoHoldsTheLock) {
    auto* const search = new OpenSearch("192.168.1.2", 5);  // NOLINT: ends at a known moment
    pthread_mutex_t* const mutex = &search->m_mutex;
    std::atomic<bool> wanted = false;
    std::atomic<bool> left = false;
    pthread_mutex_lock(mutex);
    FakeSystem::Current().mutexSeen = [&](const char* what, pthread_mutex_t* seen) {
        if (seen == mutex && strcmp(what, "lock") == 0) {
            wanted = true;
            wanted.notify_one();
        }
        if (seen == mutex && strcmp(what, "destroy") == 0) {
            EXPECT_TRUE(left);
        }
    };
    std::thread destroyer([search] { delete search; });  // NOLINT
    wanted.wait(false);
    left = true;
    pthread_mutex_unlock(mutex);
    destroyer.join();
}

}  // namespace
