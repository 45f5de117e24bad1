// The cycle of a UPnP search: start, search cycles, stop, restart, destruction.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <optional>
#include <string>
#include <vector>

#include "tests/unit/support/recordinghost.h"
#include "tests/unit/support/upnpfake.h"
#include "tests/unit/support/upnpfinder.h"

namespace {

// The calls on one mutex, while it is watched.
pthread_mutex_t* g_watched = nullptr;
std::vector<std::string> g_mutexCalls;
bool g_emptyAtDestroy = false;
UpnpFinder* g_watchedFinder = nullptr;

void Note(pthread_mutex_t* mutex, const char* call) {
    if (mutex == g_watched && mutex != nullptr) {
        g_mutexCalls.emplace_back(call);
    }
}

}  // namespace

extern "C" int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
extern "C" int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
extern "C" int __real_pthread_mutex_destroy(pthread_mutex_t* mutex);

extern "C" int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    Note(mutex, "lock");
    return __real_pthread_mutex_lock(mutex);
}

extern "C" int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    Note(mutex, "unlock");
    return __real_pthread_mutex_unlock(mutex);
}

extern "C" int __wrap_pthread_mutex_destroy(pthread_mutex_t* mutex) {
    Note(mutex, "destroy");
    if (mutex == g_watched && g_watchedFinder != nullptr) {
        g_emptyAtDestroy = g_watchedFinder->m_strIp.empty() &&
                           g_watchedFinder->m_strIp.capacity() == std::string().capacity() &&
                           g_watchedFinder->m_setDiscovered.empty();
    }
    return __real_pthread_mutex_destroy(mutex);
}

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using UpnpFake::Finish;
using UpnpFake::Register;
using UpnpFake::Search;
using UpnpFake::StartOnLoopback;
using UpnpFake::Unregister;

constexpr const char* kLocalIp = "127.0.0.1";

class UpnpSearch : public ::testing::Test {
protected:
    void SetUp() override {
        RecordingHost::Reset();
        UpnpFake::Reset();
    }

    static void Timeout() { UpnpFake::Deliver(UPNP_DISCOVERY_SEARCH_TIMEOUT, nullptr); }

    // The calls since the last time.
    std::vector<std::string> NewCalls() {
        const std::vector<std::string> calls = UpnpFake::Calls();
        std::vector<std::string> news(calls.begin() + m_callsSeen, calls.end());
        m_callsSeen += static_cast<std::ptrdiff_t>(news.size());
        return news;
    }

    std::ptrdiff_t m_callsSeen = 0;
};

TEST_F(UpnpSearch, NewObjectIsIdleAndHoldsItsThreeValues) {
    UpnpFinder finder("192.168.1.2", 49200, 12);
    EXPECT_EQ(finder.m_strIp, "192.168.1.2");
    EXPECT_EQ(finder.m_port, 49200);
    EXPECT_EQ(finder.m_searchTime, 12);
    EXPECT_EQ(finder.m_handle, 0);
    EXPECT_EQ(finder.m_state, 0);
    EXPECT_EQ(finder.m_elapsed, 0);
    EXPECT_THAT(finder.m_setDiscovered, IsEmpty());
    EXPECT_FALSE(finder.IsRunning());
}

TEST_F(UpnpSearch, StartInitialisesRegistersAndSearches) {
    UpnpFinder finder(kLocalIp, 49200, 12);
    EXPECT_EQ(finder.StartSearch(), 0);
    EXPECT_THAT(NewCalls(), ElementsAre(StartOnLoopback(49200), Register(), Search(5)));
    EXPECT_EQ(UpnpFake::ClientCookie(), static_cast<UpnpSearchBase*>(&finder));
    EXPECT_EQ(UpnpFake::SearchCookie(), static_cast<UpnpSearchBase*>(&finder));
    EXPECT_EQ(finder.m_handle, UpnpFake::kHandle);
    EXPECT_TRUE(finder.IsRunning());
}

TEST_F(UpnpSearch, PortIsPassedInSixteenBits) {
    for (const auto& [port, passed] :
         {std::pair(0, 0), {65535, 65535}, {65536 + 80, 80}, {-1, 65535}}) {
        UpnpFinder finder(kLocalIp, port, 0);
        finder.StartSearch();
        EXPECT_EQ(NewCalls().at(0), StartOnLoopback(passed));
        finder.StopSearch();
        NewCalls();
    }
}

TEST_F(UpnpSearch, FailedInitIsFinishedAndItsCodeReturned) {
    UpnpFake::SetResult("UpnpInit", UPNP_E_SOCKET_BIND);
    UpnpFinder finder(kLocalIp, 49200, 12);
    EXPECT_EQ(finder.StartSearch(), -203);
    EXPECT_THAT(NewCalls(), ElementsAre(StartOnLoopback(49200), Finish()));
    EXPECT_EQ(finder.m_state, 0);
    EXPECT_TRUE(finder.LockIsFree());
    EXPECT_EQ(finder.StopSearch(), -1);
}

TEST_F(UpnpSearch, FailedRegistrationIsFinishedAndItsCodeReturned) {
    UpnpFake::SetResult("UpnpRegisterClient", UPNP_E_ALREADY_REGISTERED);
    UpnpFinder finder(kLocalIp, 49200, 12);
    EXPECT_EQ(finder.StartSearch(), -120);
    EXPECT_THAT(NewCalls(), ElementsAre(StartOnLoopback(49200), Register(), Finish()));
    EXPECT_EQ(finder.m_state, 0);
    EXPECT_TRUE(finder.LockIsFree());
}

TEST_F(UpnpSearch, StartThatFailedMayBeTriedAgain) {
    UpnpFake::SetResult("UpnpInit", UPNP_E_SOCKET_BIND);
    UpnpFinder finder(kLocalIp, 49200, 12);
    finder.StartSearch();
    UpnpFake::SetResult("UpnpInit", UPNP_E_SUCCESS);
    EXPECT_EQ(finder.StartSearch(), 0);
    EXPECT_TRUE(finder.IsRunning());
}

TEST_F(UpnpSearch, FirstCycleThatFailsLeavesAStartedSearchThatIsOver) {
    UpnpFake::SetResult("UpnpSearchAsync", UPNP_E_INTERNAL_ERROR);
    UpnpFinder finder(kLocalIp, 49200, 12);
    EXPECT_EQ(finder.StartSearch(), 0);
    EXPECT_EQ(finder.m_state, 2);
    EXPECT_EQ(finder.m_elapsed, 0);
    EXPECT_FALSE(finder.IsRunning());
    EXPECT_EQ(finder.StopSearch(), 0);
}

TEST_F(UpnpSearch, TwelveSecondsAreCyclesOfFiveFiveAndTwo) {
    UpnpFinder finder(kLocalIp, 0, 12);
    finder.StartSearch();
    EXPECT_EQ(finder.m_elapsed, 5);
    Timeout();
    EXPECT_EQ(finder.m_elapsed, 10);
    Timeout();
    EXPECT_EQ(finder.m_elapsed, 12);
    EXPECT_TRUE(finder.IsRunning());
    Timeout();
    EXPECT_FALSE(finder.IsRunning());
    EXPECT_EQ(finder.m_state, 2);
    EXPECT_EQ(finder.m_elapsed, 12);
    EXPECT_THAT(NewCalls(),
                ElementsAre(StartOnLoopback(0), Register(), Search(5), Search(5), Search(2)));
}

TEST_F(UpnpSearch, CycleIsNoLongerThanTheSearchTime) {
    for (const auto& [searchTime, cycle] :
         {std::pair(1, 1), {4, 4}, {5, 5}, {6, 5}, {INT_MAX, 5}}) {
        UpnpFinder finder(kLocalIp, 0, searchTime);
        finder.StartSearch();
        EXPECT_EQ(NewCalls().back(), Search(cycle)) << searchTime;
        EXPECT_EQ(finder.m_elapsed, cycle);
    }
}

TEST_F(UpnpSearch, SearchTimeOfZeroOrLessIsOverWithoutASearch) {
    for (const int searchTime : {0, -1, INT_MIN}) {
        UpnpFinder finder(kLocalIp, 0, searchTime);
        EXPECT_EQ(finder.StartSearch(), 0);
        EXPECT_FALSE(finder.IsRunning());
        EXPECT_EQ(finder.m_state, 2);
        EXPECT_THAT(NewCalls(), ElementsAre(StartOnLoopback(0), Register()));
        EXPECT_EQ(finder.StopSearch(), 0);
        NewCalls();
    }
}

TEST_F(UpnpSearch, LaterCycleThatFailsEndsTheSearch) {
    UpnpFinder finder(kLocalIp, 0, 12);
    finder.StartSearch();
    UpnpFake::SetResult("UpnpSearchAsync", UPNP_E_INTERNAL_ERROR);
    Timeout();
    EXPECT_EQ(finder.m_state, 2);
    EXPECT_EQ(finder.m_elapsed, 5);
}

TEST_F(UpnpSearch, TimeoutAfterTheEndStartsNothing) {
    UpnpFinder finder(kLocalIp, 0, 3);
    finder.StartSearch();
    Timeout();
    NewCalls();
    EXPECT_EQ(UpnpFake::Deliver(UPNP_DISCOVERY_SEARCH_TIMEOUT, nullptr), -1);
    EXPECT_THAT(NewCalls(), IsEmpty());
}

TEST_F(UpnpSearch, SecondStartIsRefusedWhileSearchingAndAfterTheEnd) {
    UpnpFinder finder(kLocalIp, 0, 3);
    finder.StartSearch();
    NewCalls();
    EXPECT_EQ(finder.StartSearch(), -1);
    Timeout();
    EXPECT_EQ(finder.StartSearch(), -1);
    EXPECT_THAT(NewCalls(), IsEmpty());
    EXPECT_TRUE(finder.LockIsFree());
}

TEST_F(UpnpSearch, StopOfAnIdleObjectIsRefused) {
    UpnpFinder finder(kLocalIp, 0, 3);
    EXPECT_EQ(finder.StopSearch(), -1);
    EXPECT_THAT(NewCalls(), IsEmpty());
    EXPECT_TRUE(finder.LockIsFree());
}

TEST_F(UpnpSearch, StopUnregistersAndFinishesWithoutTheLock) {
    UpnpFinder finder(kLocalIp, 0, 12);
    finder.StartSearch();
    NewCalls();
    bool freeInUnregister = false;
    bool freeInFinish = false;
    UpnpFake::SetDuring("UpnpUnRegisterClient", [&] { freeInUnregister = finder.LockIsFree(); });
    UpnpFake::SetDuring("UpnpFinish", [&] { freeInFinish = finder.LockIsFree(); });
    EXPECT_EQ(finder.StopSearch(), 0);
    EXPECT_THAT(NewCalls(), ElementsAre(Unregister(), Finish()));
    EXPECT_TRUE(freeInUnregister);
    EXPECT_TRUE(freeInFinish);
    EXPECT_EQ(finder.m_state, 0);
    EXPECT_EQ(finder.StopSearch(), -1);
}

TEST_F(UpnpSearch, StopSucceedsWhateverLibupnpSays) {
    UpnpFake::SetResult("UpnpUnRegisterClient", UPNP_E_INVALID_HANDLE);
    UpnpFake::SetResult("UpnpFinish", UPNP_E_FINISH);
    UpnpFinder finder(kLocalIp, 0, 12);
    finder.StartSearch();
    EXPECT_EQ(finder.StopSearch(), 0);
}

TEST_F(UpnpSearch, SearchThatIsOverIsStopped) {
    UpnpFinder finder(kLocalIp, 0, 3);
    finder.StartSearch();
    Timeout();
    NewCalls();
    EXPECT_EQ(finder.StopSearch(), 0);
    EXPECT_THAT(NewCalls(), ElementsAre(Unregister(), Finish()));
}

TEST_F(UpnpSearch, LateEventsFindALiveObjectThatRefusesThem) {
    UpnpFinder finder(kLocalIp, 0, 12);
    finder.StartSearch();
    const UpnpFake::Event event = UpnpFake::MakeEvent("http://192.168.1.20/");
    int late = 0;
    UpnpFake::SetDuring(
        "UpnpFinish", [&] { late = UpnpFake::Deliver(UPNP_DISCOVERY_SEARCH_RESULT, event.get()); });
    finder.StopSearch();
    EXPECT_EQ(late, -1);
    EXPECT_THAT(finder.m_setDiscovered, IsEmpty());
}

TEST_F(UpnpSearch, RestartGoesOnWithTheSecondsThatAreLeft) {
    UpnpFinder finder(kLocalIp, 0, 7);
    finder.StartSearch();
    finder.StopSearch();
    NewCalls();
    EXPECT_EQ(finder.StartSearch(), 0);
    EXPECT_THAT(NewCalls(), ElementsAre(StartOnLoopback(0), Register(), Search(2)));
    EXPECT_EQ(finder.m_elapsed, 7);
}

TEST_F(UpnpSearch, RestartWithoutSecondsLeftIsOverAtOnce) {
    UpnpFinder finder(kLocalIp, 0, 5);
    finder.StartSearch();
    finder.StopSearch();
    NewCalls();
    EXPECT_EQ(finder.StartSearch(), 0);
    EXPECT_EQ(finder.m_state, 2);
    EXPECT_THAT(NewCalls(), ElementsAre(StartOnLoopback(0), Register()));
}

TEST_F(UpnpSearch, RestartRemembersTheLocationsSeen) {
    RecordingHost::SetHttp(0, "5", Delivering("<xml>"));
    UpnpFinder finder(kLocalIp, 0, 12);
    const UpnpFake::Event event = UpnpFake::MakeEvent("http://192.168.1.20/");
    finder.StartSearch();
    UpnpFake::Deliver(UPNP_DISCOVERY_SEARCH_RESULT, event.get());
    finder.StopSearch();
    finder.StartSearch();
    EXPECT_EQ(UpnpFake::Deliver(UPNP_DISCOVERY_SEARCH_RESULT, event.get()), 0);
    EXPECT_THAT(finder.Found(), SizeIs(1));
    EXPECT_THAT(RecordingHost::HttpUses(), SizeIs(1));
}

TEST_F(UpnpSearch, SendReturnsLibupnpsCode) {
    UpnpFinder finder(kLocalIp, 0, 12);
    finder.m_state = 1;
    UpnpFake::SetResult("UpnpSearchAsync", UPNP_E_INVALID_PARAM);
    EXPECT_EQ(finder.SendAsyncSearch(), UPNP_E_INVALID_PARAM);
    EXPECT_EQ(finder.m_state, 2);
}

// A timeout that races with StopSearch; libupnp is then unregistered again.
TEST_F(UpnpSearch, SendOfAStoppedObjectLeavesItOverForASecondStop) {
    UpnpFinder finder(kLocalIp, 0, 12);
    finder.StartSearch();
    finder.StopSearch();
    NewCalls();
    EXPECT_EQ(finder.SendAsyncSearch(), 0);
    EXPECT_EQ(finder.m_state, 2);
    EXPECT_EQ(finder.StopSearch(), 0);
    EXPECT_THAT(NewCalls(), ElementsAre(Unregister(), Finish()));
}

TEST_F(UpnpSearch, CyclesAreSentUnderTheLock) {
    UpnpFinder finder(kLocalIp, 0, 12);
    std::vector<bool> freeInSearch;
    UpnpFake::SetDuring("UpnpSearchAsync", [&] { freeInSearch.push_back(finder.LockIsFree()); });
    finder.StartSearch();
    Timeout();
    EXPECT_THAT(freeInSearch, ElementsAre(false, false));
    EXPECT_TRUE(finder.LockIsFree());
}

TEST_F(UpnpSearch, DestructionStopsTheSearch) {
    std::optional<UpnpFinder> finder(std::in_place, kLocalIp, 0, 12);
    finder->StartSearch();
    NewCalls();
    finder.reset();
    EXPECT_THAT(NewCalls(), ElementsAre(Unregister(), Finish()));
}

// A derived class that does not stop the search itself.
class Forgetful : public UpnpSearchBase {
public:
    using UpnpSearchBase::UpnpSearchBase;

protected:
    void OnDeviceDiscovered(const std::string&, const char*) override {}
};

TEST_F(UpnpSearch, BaseStopsTheSearchOfADerivedClassThatForgot) {
    std::optional<Forgetful> finder(std::in_place, kLocalIp, 0, 12);
    finder->StartSearch();
    NewCalls();
    finder.reset();
    EXPECT_THAT(NewCalls(), ElementsAre(Unregister(), Finish()));
}

TEST_F(UpnpSearch, DestructionOfAnIdleObjectCallsNothing) {
    { const UpnpFinder finder(kLocalIp, 0, 12); }
    EXPECT_THAT(NewCalls(), IsEmpty());
}

// The mutex waits for whoever is inside and goes last, when all that it guards is gone.
TEST_F(UpnpSearch, MutexIsTakenOnceMoreAndDestroyedLast) {
    std::optional<UpnpFinder> finder(std::in_place, std::string(100, '1'), 0, 12);
    finder->IsDeviceAlreadyDiscovered("http://192.168.1.20/");
    g_mutexCalls.clear();
    g_emptyAtDestroy = false;
    g_watchedFinder = &*finder;
    g_watched = &finder->m_mutex;
    finder.reset();
    g_watched = nullptr;
    const std::vector<std::string> kTwoStops = {"lock", "unlock", "lock", "unlock"};
    ASSERT_THAT(g_mutexCalls, SizeIs(7));
    EXPECT_THAT(std::vector(g_mutexCalls.begin(), g_mutexCalls.begin() + 4), kTwoStops);
    EXPECT_THAT(std::vector(g_mutexCalls.begin() + 4, g_mutexCalls.end()),
                ElementsAre("lock", "unlock", "destroy"));
    EXPECT_TRUE(g_emptyAtDestroy);
}

}  // namespace
