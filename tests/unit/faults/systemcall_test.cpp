// Each system call of a search fails, each time that it is made, with each error that it may have.
// Whatever fails: the search ends, what was found before stays, what was opened is closed, and the
// lock is free.
#include <gmock/gmock.h>
#include <pthread.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "tests/unit/support/opensearch.h"
#include "tests/unit/support/recordinghost.h"
#include "tests/unit/support/samplereply.h"
#include "tests/unit/support/scriptednetwork.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr bool kBounded = LANSCOUT_BOUNDED != 0;
constexpr std::time_t kDay = 86'400;

std::string Reply() {
    return SampleReply("http://192.168.1.20:8080/onvif/device_service",
                       "onvif://www.onvif.org/hardware/IPC-100");
}

// Two cameras in two cycles, and one call of one kind that fails.
class FaultyNetwork {
public:
    FaultyNetwork(const std::string& call, int failing, int number)
        : m_call(call), m_nLeft(failing), m_nError(number) {
        RecordingHost::Reset();
        for (const char* ip : {"192.168.1.20", "192.168.1.21"}) {
            m_network.Neighbour(ip, "abcdef");
        }
        m_network.Reply("192.168.1.20", Reply());
        m_network.Silence();
        m_network.Reply("192.168.1.21", Reply());
        m_network.Silence();
        FakeSystem::Calls& calls = FakeSystem::Current();
        calls.socket = Faulty("socket", calls.socket, [this] { ++m_nOpen; });
        calls.close = [this, close = calls.close](int fd) {
            --m_nOpen;
            return close(fd);
        };
        calls.bind = Faulty("bind", calls.bind);
        calls.setsockopt = Faulty("setsockopt", calls.setsockopt);
        calls.sendto = Faulty("sendto", calls.sendto);
        calls.recvfrom = Faulty("recvfrom", calls.recvfrom);
        calls.ioctl = Faulty("ioctl", calls.ioctl);
    }

    bool HasFailed() const { return m_nLeft < 0; }
    int Open() const { return m_nOpen; }

private:
    template <typename Result, typename... Arguments>
    std::function<Result(Arguments...)> Faulty(
        const char* name, std::function<Result(Arguments...)> call,
        std::function<void()> succeeded = [] {}) {
        return [this, name, call, succeeded](Arguments... arguments) -> Result {
            if (m_call == name && m_nLeft-- == 0) {
                errno = m_nError;
                return -1;
            }
            const Result result = call(arguments...);
            succeeded();
            return result;
        };
    }

    ScriptedNetwork m_network;
    std::string m_call;
    int m_nLeft;
    int m_nError;
    int m_nOpen = 0;
};

// What a search of two cycles has listed when the call number `failing`, from 0, of `call` fails.
struct Outcome {
    bool bFailed = false;
    std::vector<std::string> listed;
};

Outcome SearchWith(const std::string& call, int failing, int number) {
    FaultyNetwork network(call, failing, number);
    Outcome outcome;
    OpenSearch search("192.168.1.2", 4);
    EXPECT_EQ(search.StartSearch(), 0);
    EXPECT_EQ(search.StopSearch(), 0);
    EXPECT_FALSE(search.IsRunning());
    EXPECT_EQ(pthread_mutex_trylock(&search.m_mutex), 0);
    pthread_mutex_unlock(&search.m_mutex);
    EXPECT_EQ(network.Open(), 0) << call << " " << failing;
    for (const ONVIF_CAM_SEARCH_INFO& info : search.m_vecCamInfo) {
        outcome.listed.push_back(info.strIp.substr(info.strIp.rfind('.') + 1) + " " + info.strMac);
        EXPECT_EQ(info.nPort, 8080);
        EXPECT_EQ(info.strHardware, "IPC-100");
    }
    outcome.bFailed = network.HasFailed();
    return outcome;
}

const std::string kFirst = "20 61:62:63:64:65:66";
const std::string kSecond = "21 61:62:63:64:65:66";

constexpr int kErrors[] = {EINTR,    EAGAIN,      ENOBUFS,      ENOMEM,       EMFILE,
                           ENFILE,   EACCES,      EPERM,        EADDRINUSE,   EADDRNOTAVAIL,
                           ENETDOWN, ENETUNREACH, EHOSTUNREACH, ECONNREFUSED, ENODEV,
                           EBADF,    EIO};

TEST(SystemCallFault, WithoutASocketNothingIsSearched) {
    for (const int number : kErrors) {
        SCOPED_TRACE(strerrorname_np(number));
        EXPECT_THAT(SearchWith("socket", 0, number).listed, IsEmpty());
    }
}

TEST(SystemCallFault, LookupWithoutASocketLeavesTheCameraWithoutMac) {
    for (const int number : kErrors) {
        SCOPED_TRACE(strerrorname_np(number));
        EXPECT_THAT(SearchWith("socket", 1, number).listed, ElementsAre("20 N/A", kSecond));
        EXPECT_THAT(SearchWith("socket", 2, number).listed, ElementsAre(kFirst, "21 N/A"));
        EXPECT_FALSE(SearchWith("socket", 3, number).bFailed);
    }
}

TEST(SystemCallFault, RefusedSetUpEndsTheSearch) {
    for (const int number : kErrors) {
        SCOPED_TRACE(strerrorname_np(number));
        EXPECT_THAT(SearchWith("bind", 0, number).listed, IsEmpty());
        EXPECT_THAT(SearchWith("setsockopt", 0, number).listed, IsEmpty());
        EXPECT_FALSE(SearchWith("bind", 1, number).bFailed);
        EXPECT_FALSE(SearchWith("setsockopt", 1, number).bFailed);
    }
}

TEST(SystemCallFault, FailedSendEndsTheSearchWithWhatItHas) {
    for (const int number : kErrors) {
        SCOPED_TRACE(strerrorname_np(number));
        EXPECT_THAT(SearchWith("sendto", 0, number).listed, IsEmpty());
        EXPECT_THAT(SearchWith("sendto", 1, number).listed, IsEmpty());
        EXPECT_THAT(SearchWith("sendto", 2, number).listed, ElementsAre(kFirst));
        EXPECT_THAT(SearchWith("sendto", 3, number).listed, ElementsAre(kFirst));
        EXPECT_FALSE(SearchWith("sendto", 4, number).bFailed);
    }
}

// No more than the rest of a cycle is lost: what has not been read yet is read in the next one.
TEST(SystemCallFault, FailedReceiveCostsNoCamera) {
    for (const int number : kErrors) {
        SCOPED_TRACE(strerrorname_np(number));
        int failing = 0;
        for (; SearchWith("recvfrom", failing, number).bFailed; ++failing) {
            EXPECT_THAT(SearchWith("recvfrom", failing, number).listed,
                        ElementsAre(kFirst, kSecond));
        }
        EXPECT_GE(failing, 4);
    }
}

TEST(SystemCallFault, FailedQueryIsAskedAgain) {
    for (const int number : kErrors) {
        SCOPED_TRACE(strerrorname_np(number));
        EXPECT_THAT(SearchWith("ioctl", 0, number).listed, ElementsAre(kFirst, kSecond));
        EXPECT_THAT(SearchWith("ioctl", 1, number).listed, ElementsAre(kFirst, kSecond));
    }
}

class ClockFault : public testing::Test {
protected:
    ClockFault() { RecordingHost::Reset(); }

    // A search of 10 seconds whose wall clock is set while it receives the second time. The number
    // of its cycles.
    std::size_t Cycles(std::time_t jump) {
        std::time_t set = 0;
        ScriptedNetwork network;
        network.Neighbour("192.168.1.20", "abcdef");
        network.Reply("192.168.1.20", Reply());
        network.Silence();
        network.Then([&set, jump] { set = jump; });
        FakeSystem::Current().time = [&] { return network.Now() + set; };
        OpenSearch search("192.168.1.2", 10);
        search.StartSearch();
        search.StopSearch();
        EXPECT_FALSE(search.IsRunning());
        EXPECT_EQ(search.CamCountGet(), 1);
        return network.Events("send NVT").size();
    }
};

TEST_F(ClockFault, ClockThatIsLeftAloneGivesACycleEveryThreeSeconds) {
    EXPECT_EQ(Cycles(0), 4U);
}

TEST_F(ClockFault, ClockSetForwardADayEndsTheSearchAfterItsCycle) {
    EXPECT_EQ(Cycles(kDay), 2U);
}

// The duration counts seconds of the wall clock, and so the search lasts a day longer. A bounded
// one ends 30 seconds after its duration, which is after the cycle of second 39.
TEST_F(ClockFault, ClockSetBackADayMakesTheSearchADayLongerOnlyInTheDefaultBuild) {
    EXPECT_EQ(Cycles(-kDay), kBounded ? 14U : 4U + kDay / 3);
}

TEST_F(ClockFault, ReceiveThatNeverFallsSilentIsEndedAlsoWhenTheClockIsSetBack) {
    ScriptedNetwork network;
    network.Neighbour("192.168.1.20", "abcdef");
    std::time_t set = 0;
    network.Then([&set] { set = -kDay; });
    for (int i = 0; i < 100; ++i) {
        network.Reply("192.168.1.20", Reply(), 2);
    }
    FakeSystem::Current().time = [&] { return network.Now() + set; };
    FakeSystem::Current().sendto = [&, send = FakeSystem::Current().sendto, count = 0](
                                       int fd, const void* data, size_t size, int flags,
                                       const sockaddr* to, socklen_t length) mutable {
        set = count++ < 2 ? set : 2 * kDay;  // no second cycle: what is left in the script counts
        return send(fd, data, size, flags, to, length);
    };
    OpenSearch search("192.168.1.2", 5);
    search.StartSearch();
    search.StopSearch();
    EXPECT_EQ(network.Events("send NVT").size(), kBounded ? 1U : 2U);
    EXPECT_LE(network.Now() - ScriptedNetwork::kStart, kBounded ? 5 + 30 + 2 : 200 + 6);
}

// The camera has no ARP entry, and its reply is looked at after the clock was set.
TEST_F(ClockFault, ClockSetForwardADayCostsNoCameraItsMacAddress) {
    ScriptedNetwork network;
    std::time_t set = 0;
    network.Reply("192.168.1.20", Reply());
    network.Then([&set] { set = kDay; });
    FakeSystem::Current().time = [&] { return network.Now() + set; };
    OpenSearch search("192.168.1.2", 10);
    search.StartSearch();
    search.StopSearch();
    EXPECT_EQ(search.CamCountGet(), 1);
    EXPECT_EQ(RecordingHost::ExeclRuns().size(), 3U);
}

}  // namespace
