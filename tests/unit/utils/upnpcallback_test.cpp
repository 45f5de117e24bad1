// What CallbackHandler does with libupnp's events.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <climits>
#include <latch>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/support/recordinghost.h"
#include "tests/unit/support/upnpfake.h"
#include "tests/unit/support/upnpfinder.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;

constexpr const char* kLocation = "http://192.168.1.20/desc.xml";

// Runs body(0) to body(count - 1) on a thread each, and waits for them.
template <typename Body>
void OnThreads(int count, const Body& body) {
    std::vector<std::thread> threads(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        threads[static_cast<std::size_t>(i)] = std::thread([&body, i] { body(i); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

class UpnpCallback : public ::testing::Test {
protected:
    void SetUp() override {
        RecordingHost::Reset();
        UpnpFake::Reset();
        RecordingHost::SetHttp(0, "5", Delivering("<xml>"));
        m_finder.m_state = 1;
    }

    int Handle(int type, void* event) {
        return UpnpFinder::CallbackHandler(static_cast<Upnp_EventType_e>(type), event, &m_finder);
    }

    int HandleResult(const std::string& location) {
        Upnp_Discovery discovery = MakeDiscovery(location);
        return Handle(UPNP_DISCOVERY_SEARCH_RESULT, &discovery);
    }

    UpnpFinder m_finder{"192.168.1.2", 0, 10};
};

TEST_F(UpnpCallback, NullCookieIsRefused) {
    Upnp_Discovery discovery = MakeDiscovery(kLocation);
    EXPECT_EQ(UpnpFinder::CallbackHandler(UPNP_DISCOVERY_SEARCH_RESULT, &discovery, nullptr), -1);
    EXPECT_EQ(UpnpFinder::CallbackHandler(UPNP_DISCOVERY_SEARCH_TIMEOUT, nullptr, nullptr), -1);
}

TEST_F(UpnpCallback, EveryEventIsRefusedUnlessSearching) {
    Upnp_Discovery discovery = MakeDiscovery(kLocation);
    for (const int state : {0, 2}) {
        m_finder.m_state = state;
        for (int type = UPNP_CONTROL_ACTION_REQUEST; type <= UPNP_EVENT_SUBSCRIPTION_EXPIRED;
             ++type) {
            EXPECT_EQ(Handle(type, &discovery), -1) << "type " << type << " state " << state;
        }
        EXPECT_EQ(m_finder.m_state, state);
    }
    EXPECT_THAT(m_finder.m_setDiscovered, IsEmpty());
    EXPECT_THAT(UpnpFake::Calls(), IsEmpty());
}

TEST_F(UpnpCallback, OtherTypesAreTakenWithNothingDone) {
    Upnp_Discovery discovery = MakeDiscovery(kLocation);
    for (int type = UPNP_CONTROL_ACTION_REQUEST; type <= UPNP_EVENT_SUBSCRIPTION_EXPIRED; ++type) {
        if (type != 4 && type != 6 && type != 7) {
            EXPECT_EQ(Handle(type, &discovery), 0) << type;
            EXPECT_EQ(Handle(type, nullptr), 0) << type;
        }
    }
    EXPECT_THAT(m_finder.m_setDiscovered, IsEmpty());
    EXPECT_THAT(UpnpFake::Calls(), IsEmpty());
}

TEST_F(UpnpCallback, TimeoutStartsTheNextCycle) {
    EXPECT_EQ(Handle(7, nullptr), 0);
    EXPECT_THAT(UpnpFake::Calls(), SizeIs(1));
    EXPECT_EQ(m_finder.m_elapsed, 5);
}

TEST_F(UpnpCallback, TimeoutIsTakenAlsoWhenTheNextCycleFails) {
    UpnpFake::SetResult("UpnpSearchAsync", UPNP_E_INVALID_HANDLE);
    EXPECT_EQ(Handle(7, nullptr), 0);
    EXPECT_EQ(m_finder.m_state, 2);
}

TEST_F(UpnpCallback, DiscoveryWithoutARecordIsRefused) {
    EXPECT_EQ(Handle(4, nullptr), -1);
    EXPECT_EQ(Handle(6, nullptr), -1);
}

TEST_F(UpnpCallback, DiscoveryWithAnErrorIsRefusedAndNotMarkedAsSeen) {
    for (const int error : {UPNP_E_INVALID_DESC, 1}) {
        Upnp_Discovery discovery = MakeDiscovery(kLocation, error);
        EXPECT_EQ(Handle(4, &discovery), -1);
        EXPECT_EQ(Handle(6, &discovery), -1);
    }
    EXPECT_THAT(m_finder.m_setDiscovered, IsEmpty());
    EXPECT_THAT(RecordingHost::HttpUses(), IsEmpty());
}

TEST_F(UpnpCallback, SearchResultIsFetchedAndHandedOver) {
    Upnp_Discovery discovery = MakeDiscovery(kLocation);
    EXPECT_EQ(Handle(6, &discovery), 0);
    EXPECT_THAT(m_finder.Found(), ElementsAre(Pair("<xml>", kLocation)));
}

TEST_F(UpnpCallback, AdvertisementIsFetchedAndHandedOver) {
    Upnp_Discovery discovery = MakeDiscovery(kLocation);
    EXPECT_EQ(Handle(4, &discovery), 0);
    EXPECT_THAT(m_finder.Found(), ElementsAre(Pair("<xml>", kLocation)));
}

TEST_F(UpnpCallback, ReplyAndAdvertisementOfOneLocationAreOneFetch) {
    Upnp_Discovery discovery = MakeDiscovery(kLocation);
    EXPECT_EQ(Handle(6, &discovery), 0);
    EXPECT_EQ(Handle(4, &discovery), 0);
    EXPECT_EQ(Handle(6, &discovery), 0);
    EXPECT_THAT(RecordingHost::HttpUses(), SizeIs(1));
    EXPECT_THAT(m_finder.Found(), SizeIs(1));
}

TEST_F(UpnpCallback, LocationsAreComparedByteForByte) {
    HandleResult("http://h/d");
    HandleResult("http://h/D");
    HandleResult("http://h/d ");
    HandleResult("http://h:80/d");
    EXPECT_THAT(m_finder.Found(), SizeIs(4));
}

TEST_F(UpnpCallback, LocationIsMarkedAsSeenBeforeTheFetch) {
    bool seen = false;
    RecordingHost::SetHttp(0, "5", [&](char*, int) {
        seen = m_finder.IsDeviceAlreadyDiscovered(kLocation);
        return 0;
    });
    HandleResult(kLocation);
    EXPECT_TRUE(seen);
}

TEST_F(UpnpCallback, FailedFetchIsSilentAndNotRetried) {
    RecordingHost::SetHttp(-1, "", nullptr);
    EXPECT_EQ(HandleResult(kLocation), 0);
    RecordingHost::SetHttp(0, "5", Delivering("<xml>"));
    EXPECT_EQ(HandleResult(kLocation), 0);
    EXPECT_THAT(RecordingHost::HttpUses(), SizeIs(1));
    EXPECT_THAT(m_finder.Found(), IsEmpty());
}

TEST_F(UpnpCallback, LockIsFreeDuringFetchAndDerivedOperation) {
    bool freeInFetch = false;
    bool freeInOperation = false;
    RecordingHost::SetHttp(0, "5", [&](char* buffer, int) {
        freeInFetch = m_finder.LockIsFree();
        *buffer = 'x';
        return 1;
    });
    m_finder.m_during = [&](const std::string&, const char*) {
        freeInOperation = m_finder.LockIsFree();
    };
    HandleResult(kLocation);
    EXPECT_TRUE(freeInFetch);
    EXPECT_TRUE(freeInOperation);
}

TEST_F(UpnpCallback, ExceptionOfTheDerivedClassEndsInTheHandler) {
    m_finder.m_during = [](const std::string&, const char*) { throw std::runtime_error("no"); };
    EXPECT_EQ(HandleResult("http://h/1"), 0);
    m_finder.m_during = [](const std::string&, const char*) { throw 1; };
    EXPECT_EQ(HandleResult("http://h/2"), 0);
    m_finder.m_during = nullptr;
    EXPECT_EQ(HandleResult("http://h/3"), 0);
    EXPECT_THAT(m_finder.Found(), ElementsAre(Pair("<xml>", "http://h/3")));
    EXPECT_TRUE(m_finder.LockIsFree());
}

TEST_F(UpnpCallback, ExceptionOfTheFetchEndsInTheHandler) {
    RecordingHost::SetHttp(0, "5", [](char*, int) -> int { throw std::bad_alloc(); });
    EXPECT_EQ(HandleResult(kLocation), 0);
    EXPECT_THAT(m_finder.Found(), IsEmpty());
    EXPECT_EQ(RecordingHost::LiveHttpClients(), 0);
}

TEST_F(UpnpCallback, FirstSightOfALocationMarksItAsSeen) {
    EXPECT_FALSE(m_finder.IsDeviceAlreadyDiscovered(kLocation));
    EXPECT_TRUE(m_finder.IsDeviceAlreadyDiscovered(kLocation));
    EXPECT_FALSE(m_finder.IsDeviceAlreadyDiscovered(""));
    EXPECT_THAT(m_finder.m_setDiscovered, ElementsAre("", kLocation));
}

// All of them are inside the derived class's operation before one leaves it.
TEST_F(UpnpCallback, DerivedOperationRunsOnSeveralThreadsAtOnce) {
    constexpr int kThreads = 4;
    std::barrier<> inside(kThreads);
    m_finder.m_during = [&](const std::string&, const char*) { inside.arrive_and_wait(); };
    OnThreads(kThreads, [this](int i) { HandleResult("http://h/" + std::to_string(i)); });
    EXPECT_THAT(m_finder.Found(), SizeIs(kThreads));
}

TEST_F(UpnpCallback, ThreadsThatSeeTheSameLocationsReportEachOnce) {
    constexpr int kThreads = 4;
    constexpr int kLocations = 100;
    OnThreads(kThreads, [this](int) {
        for (int location = 0; location < kLocations; ++location) {
            HandleResult("http://h/" + std::to_string(location));
        }
    });
    EXPECT_THAT(m_finder.Found(), SizeIs(kLocations));
    EXPECT_THAT(RecordingHost::HttpUses(), SizeIs(kLocations));
}

// Events and polls go on while the search is stopped, as libupnp's threads do until UpnpFinish
// returns.
TEST_F(UpnpCallback, StopWhileEventsArriveLeavesNoneBehind) {
    m_finder.m_searchTime = INT_MAX;
    std::atomic<bool> finished{false};
    std::latch started(3);
    std::thread workers([&] {
        OnThreads(3, [&](int i) {
            for (int event = 0; !finished; ++event) {
                HandleResult("http://h/" + std::to_string(i) + "/" + std::to_string(event));
                Handle(7, nullptr);
                m_finder.IsRunning();
                if (event == 20) {
                    started.count_down();
                }
            }
        });
    });
    UpnpFake::SetDuring("UpnpFinish", [&] {
        finished = true;
        workers.join();
    });
    started.wait();
    EXPECT_EQ(m_finder.StopSearch(), 0);
    UpnpFake::SetDuring("UpnpFinish", nullptr);
    EXPECT_FALSE(m_finder.IsRunning());
    EXPECT_EQ(HandleResult("http://h/late"), -1);
}

}  // namespace
