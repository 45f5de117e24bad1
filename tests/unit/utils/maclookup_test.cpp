// The MAC address lookup: the kernel's ARP cache, asked up to three times, with arping in between.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/support/expectedlog.h"
#include "tests/unit/support/fakesystem.h"
#include "tests/unit/support/opensearch.h"
#include "tests/unit/support/recordinghost.h"

namespace {

using RecordingHost::IsLine;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr bool kBounded = LANSCOUT_BOUNDED != 0;
constexpr int kArpSocket = 1'000'002;

// One answer of the kernel: an errno, or flags and a hardware address.
struct Answer {
    int nError = 0;
    int nFlags = 0;
    std::vector<unsigned char> mac = std::vector<unsigned char>(6);
};

const Answer kUnknown{ENXIO, 0, {}};
const Answer kIncomplete{0, 0, {0, 0, 0, 0, 0, 0}};
const Answer kComplete{0, ATF_COM, {0, 10, 255, 1, 2, 3}};

class MacLookup : public testing::Test {
protected:
    MacLookup() : m_search((RecordingHost::Reset(), "192.168.1.2"), 5) {
        RecordingHost::SetLogLevel(4);
        FakeSystem::Calls& calls = FakeSystem::Current();
        calls.socket = [this](int domain, int type, int protocol) {
            m_seen.push_back("socket " + std::to_string(domain) + " " + std::to_string(type) + " " +
                             std::to_string(protocol));
            errno = m_socketError;
            return m_socketError == 0 ? kArpSocket : -1;
        };
        calls.close = [this](int fd) {
            m_seen.push_back("close " + std::to_string(fd));
            return 0;
        };
        calls.ioctl = [this](int fd, unsigned long request, void* argument) {
            EXPECT_EQ(fd, kArpSocket);
            EXPECT_EQ(request, 0x8954U);
            return Query(*static_cast<arpreq*>(argument));
        };
    }

    // The kernel's answers, one a query; `result` is what arping's runner reports.
    int LookUp(std::vector<Answer> answers, int result = 0) {
        m_answers = std::move(answers);
        RecordingHost::SetExecl(result, [this] { m_seen.emplace_back("arping"); });
        return m_search.GetMACAddr("192.168.1.20", m_mac);
    }

    int Query(arpreq& request) {
        m_requests.push_back(request);
        m_seen.emplace_back("query");
        if (m_answers.empty()) {
            ADD_FAILURE() << "one query too many";
            return -1;
        }
        const Answer answer = m_answers.front();
        m_answers.erase(m_answers.begin());
        if (answer.nError != 0) {
            errno = answer.nError;
            return -1;
        }
        request.arp_flags = answer.nFlags;
        std::copy_n(answer.mac.begin(), 6, request.arp_ha.sa_data);
        return 0;
    }

    FakeSystem::Scope m_scope;
    OpenSearch m_search;
    std::vector<Answer> m_answers;
    std::vector<std::string> m_seen;
    std::vector<arpreq> m_requests;
    std::string m_mac = "N/A";
    int m_socketError = 0;
};

TEST_F(MacLookup, CachedNeighbourCostsOneQuery) {
    EXPECT_EQ(LookUp({kComplete}), 0);
    EXPECT_EQ(m_mac, "00:0A:FF:01:02:03");
    EXPECT_THAT(m_seen, ElementsAre("socket 2 2 0", "query", "close 1000002"));
    EXPECT_THAT(RecordingHost::ExeclRuns(), IsEmpty());
    EXPECT_THAT(RecordingHost::LogLines(), IsEmpty());
}

TEST_F(MacLookup, AllBitsOfTheBytesArePrinted) {
    EXPECT_EQ(LookUp({{0, ATF_COM | ATF_PERM, {0xDE, 0xAD, 0xBE, 0xEF, 0x80, 0x7F}}}), 0);
    EXPECT_EQ(m_mac, "DE:AD:BE:EF:80:7F");
}

TEST_F(MacLookup, QueryNamesAddressAndDeviceAndNothingElse) {
    LookUp({kComplete});
    ASSERT_EQ(m_requests.size(), 1U);
    arpreq expected{};
    sockaddr_in address{};
    address.sin_family = AF_INET;
    inet_pton(AF_INET, "192.168.1.20", &address.sin_addr);
    memcpy(&expected.arp_pa, &address, sizeof(address));
    memcpy(expected.arp_dev, "eth7", 4);
    EXPECT_EQ(memcmp(m_requests.data(), &expected, sizeof(expected)), 0);
}

TEST_F(MacLookup, ArpingMakesTheKernelLearnAMissingNeighbour) {
    EXPECT_EQ(LookUp({kUnknown, kComplete}), 0);
    EXPECT_EQ(m_mac, "00:0A:FF:01:02:03");
    EXPECT_THAT(m_seen, ElementsAre("socket 2 2 0", "query", "arping", "query", "close 1000002"));
    EXPECT_THAT(
        RecordingHost::ExeclRuns(),
        ElementsAre(ElementsAre("/usr/bin/arping", "187", "-c", "1", "-w", "1", "192.168.1.20")));
    EXPECT_THAT(RecordingHost::LogLines(), IsEmpty());
}

TEST_F(MacLookup, SilentCameraCostsThreeQueriesAndThreeRuns) {
    EXPECT_EQ(LookUp({kUnknown, kUnknown, kUnknown}, 1), -1);
    EXPECT_EQ(m_mac, "N/A");
    EXPECT_THAT(m_seen, ElementsAre("socket 2 2 0", "query", "arping", "query", "arping", "query",
                                    "arping", "close 1000002"));
    const auto failed = IsLine(4, "GetMACAddr", "Failed to update arp table.\n");
    EXPECT_THAT(RecordingHost::LogLines(), ElementsAre(failed, failed, failed));
}

TEST_F(MacLookup, AnyNonzeroResultOfTheRunnerIsFailure) {
    for (const int result : {-1, 1, 256}) {
        RecordingHost::Reset();
        RecordingHost::SetLogLevel(4);
        LookUp({kUnknown, kComplete}, result);
        EXPECT_THAT(RecordingHost::LogMessages(), ElementsAre("Failed to update arp table.\n"));
        EXPECT_EQ(m_mac, "00:0A:FF:01:02:03");  // it goes on all the same
    }
}

TEST_F(MacLookup, IncompleteEntryCostsThreeQueriesAndNoRun) {
    EXPECT_EQ(LookUp({kIncomplete, kIncomplete, kIncomplete}), -1);
    EXPECT_EQ(m_mac, "N/A");
    EXPECT_THAT(m_seen, ElementsAre("socket 2 2 0", "query", "query", "query", "close 1000002"));
    EXPECT_THAT(RecordingHost::LogLines(), IsEmpty());
}

TEST_F(MacLookup, OtherErrorsRunNothingAndLogNothing) {
    for (const int error : {ENODEV, EINVAL, EPERM, EAGAIN, ENOENT}) {
        m_seen.clear();
        EXPECT_EQ(LookUp({{error, 0, {}}, {error, 0, {}}, {error, 0, {}}}), -1);
        EXPECT_EQ(m_seen.size(), 5U);
    }
    EXPECT_THAT(RecordingHost::ExeclRuns(), IsEmpty());
    EXPECT_THAT(RecordingHost::LogLines(), IsEmpty());
}

TEST_F(MacLookup, EntryThatCompletesOnTheThirdQueryIsTaken) {
    EXPECT_EQ(LookUp({kUnknown, kIncomplete, kComplete}), 0);
    EXPECT_EQ(RecordingHost::ExeclRuns().size(), 1U);
}

TEST_F(MacLookup, RecordIsNotClearedBetweenAttempts) {
    LookUp({{0, ATF_PUBL, {1, 2, 3, 4, 5, 6}}, kUnknown, kUnknown});
    ASSERT_EQ(m_requests.size(), 3U);
    EXPECT_EQ(m_requests[1].arp_flags, ATF_PUBL);
    EXPECT_EQ(m_requests[2].arp_ha.sa_data[5], 6);
}

// What a failed query leaves in the record decides, too: flags of the last successful one.
TEST_F(MacLookup, FlagsAreTestedAfterAFailedQuery) {
    FakeSystem::Current().ioctl = [](int, unsigned long, void* argument) {
        static_cast<arpreq*>(argument)->arp_flags = ATF_COM;
        errno = ENXIO;
        return -1;
    };
    EXPECT_EQ(LookUp({}), 0);
    EXPECT_EQ(m_mac, "00:00:00:00:00:00");
    EXPECT_EQ(RecordingHost::ExeclRuns().size(), 1U);
}

TEST_F(MacLookup, InvalidAddressIsLoggedAndOpensNoSocket) {
    for (const std::string text : {"999.1.1.1", "", "camera"}) {
        RecordingHost::Reset();
        EXPECT_EQ(m_search.GetMACAddr(text, m_mac), -1);
        EXPECT_THAT(RecordingHost::LogLines(),
                    ElementsAre(IsLine(3, "GetMACAddr", "Invalid IP address: %s\n",
                                       "Invalid IP address: " + text + "\n")));
    }
    EXPECT_EQ(m_mac, "N/A");
    EXPECT_THAT(m_seen, IsEmpty());
}

TEST_F(MacLookup, RefusedSocketIsLoggedWithItsNumber) {
    m_socketError = EMFILE;
    EXPECT_EQ(LookUp({}), -1);
    EXPECT_EQ(m_mac, "N/A");
    EXPECT_THAT(RecordingHost::LogLines(),
                ElementsAre(IsLine(3, "GetMACAddr", "Create socket failed. [%d]\n",
                                   "Create socket failed. [24]\n")));
    EXPECT_THAT(m_seen, ElementsAre("socket 2 2 0"));
}

TEST_F(MacLookup, EmptyDeviceNameIsAskedWithAsItIs) {
    m_search.m_strIfName.clear();
    EXPECT_EQ(LookUp({kComplete}), 0);
    EXPECT_EQ(m_requests[0].arp_dev[0], '\0');
}

TEST_F(MacLookup, LongestInterfaceNameIsPassedWhole) {
    m_search.m_strIfName = "fifteen-bytes-x";
    LookUp({kComplete});
    EXPECT_STREQ(static_cast<const char*>(m_requests[0].arp_dev), "fifteen-bytes-x");
}

// For the address sanitizer: the record is the last thing on its page of the stack.
TEST_F(MacLookup, NameBeyondTheFieldIsCutAndCorruptsNothing) {
    m_search.m_strIfName = std::string(300, 'n');
    EXPECT_EQ(LookUp({kComplete}), 0);
    EXPECT_EQ(std::string(static_cast<const char*>(m_requests[0].arp_dev)), std::string(15, 'n'));
    EXPECT_EQ(m_mac, "00:0A:FF:01:02:03");
}

// Senders who do not exist, thousands of them, would hold a search for days: 3 seconds each.
TEST_F(MacLookup, LongAfterTheSearchArpingRunsOnlyInTheDefaultBuild) {
    m_search.m_startTime = 1000;
    FakeSystem::Current().time = [] { return time_t{1000 + 5 + 30 + 1}; };
    EXPECT_EQ(LookUp({kUnknown, kUnknown, kUnknown}), -1);
    EXPECT_EQ(RecordingHost::ExeclRuns().size(), kBounded ? 0U : 3U);
    EXPECT_EQ(m_mac, "N/A");
}

TEST_F(MacLookup, KnownNeighbourIsReadHoweverLate) {
    m_search.m_startTime = 1000;
    FakeSystem::Current().time = [] { return time_t{100'000}; };
    EXPECT_EQ(LookUp({kComplete}), 0);
}

TEST_F(MacLookup, ArpingRunsUntilTheGraceIsOver) {
    m_search.m_startTime = 1000;
    FakeSystem::Current().time = [] { return time_t{1000 + 5 + 30}; };
    EXPECT_EQ(LookUp({kUnknown, kComplete}), 0);
}

}  // namespace
