// The bridge from the installed libupnp to its 1.6 interface.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/unit/support/upnpfake.h"
#include "utils/upnp16.h"

namespace {

bool g_noLocation = false;  // libupnp has no text at all for the Location

}  // namespace

extern "C" const char* __real_UpnpDiscovery_get_Location_cstr(const UpnpDiscovery* event);
extern "C" const char* __wrap_UpnpDiscovery_get_Location_cstr(const UpnpDiscovery* event) {
    return g_noLocation ? nullptr : __real_UpnpDiscovery_get_Location_cstr(event);
}

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// One call of the 1.6 callback.
struct Received {
    int type;
    void* cookie;
    std::optional<Upnp_Discovery> discovery;  // none: the event was null
};
std::vector<Received> g_received;

int Receive(Upnp_EventType_e type, void* event, void* cookie) {
    Received received{type, cookie, std::nullopt};
    if (event != nullptr) {
        received.discovery = *static_cast<Upnp_Discovery*>(event);
    }
    g_received.push_back(received);
    return 42;
}

int ReceiveOtherwise(Upnp_EventType_e, void*, void*) {
    return 43;
}

class Upnp16Bridge : public ::testing::Test {
protected:
    void SetUp() override {
        UpnpFake::Reset();
        g_received.clear();
        Upnp16::UpnpRegisterClient(Receive, &m_cookie, &m_handle);
    }

    int m_cookie = 0;
    UpnpClient_Handle m_handle = 0;
};

TEST_F(Upnp16Bridge, DiscoveryEventsCarryErrCodeAndLocation) {
    const UpnpFake::Event event = UpnpFake::MakeEvent("http://192.168.1.20/d", -110);
    for (const Upnp_EventType type :
         {UPNP_DISCOVERY_ADVERTISEMENT_ALIVE, UPNP_DISCOVERY_ADVERTISEMENT_BYEBYE,
          UPNP_DISCOVERY_SEARCH_RESULT}) {
        g_received.clear();
        EXPECT_EQ(UpnpFake::Deliver(type, event.get()), 42);
        ASSERT_EQ(g_received.size(), 1) << type;
        EXPECT_EQ(g_received[0].type, type);
        EXPECT_EQ(g_received[0].cookie, &m_cookie);
        ASSERT_TRUE(g_received[0].discovery.has_value());
        EXPECT_EQ(g_received[0].discovery->ErrCode, -110);
        EXPECT_STREQ(g_received[0].discovery->Location, "http://192.168.1.20/d");
    }
}

TEST_F(Upnp16Bridge, EventWithoutALocationHasAnEmptyOne) {
    const UpnpFake::Event event(UpnpDiscovery_new());
    UpnpFake::Deliver(UPNP_DISCOVERY_SEARCH_RESULT, event.get());
    g_noLocation = true;
    UpnpFake::Deliver(UPNP_DISCOVERY_SEARCH_RESULT, event.get());
    g_noLocation = false;
    ASSERT_EQ(g_received.size(), 2);
    for (const Received& received : g_received) {
        ASSERT_TRUE(received.discovery.has_value());
        EXPECT_STREQ(received.discovery->Location, "");
    }
}

TEST_F(Upnp16Bridge, LocationThatJustFitsIsWhole) {
    const std::string location(kUpnpLocationBytes - 1, 'x');
    UpnpFake::Deliver(UPNP_DISCOVERY_SEARCH_RESULT, UpnpFake::MakeEvent(location).get());
    ASSERT_EQ(g_received.size(), 1);
    EXPECT_EQ(g_received[0].discovery->Location, location);
}

TEST_F(Upnp16Bridge, LocationThatDoesNotFitIsDroppedWithItsEvent) {
    const std::string location(kUpnpLocationBytes, 'x');
    EXPECT_EQ(UpnpFake::Deliver(UPNP_DISCOVERY_SEARCH_RESULT, UpnpFake::MakeEvent(location).get()),
              0);
    EXPECT_THAT(g_received, IsEmpty());
}

TEST_F(Upnp16Bridge, TimeoutHasNoRecord) {
    EXPECT_EQ(UpnpFake::Deliver(UPNP_DISCOVERY_SEARCH_TIMEOUT, nullptr), 42);
    ASSERT_EQ(g_received.size(), 1);
    EXPECT_EQ(g_received[0].type, 7);
    EXPECT_FALSE(g_received[0].discovery.has_value());
}

TEST_F(Upnp16Bridge, DiscoveryWithoutAnEventHasNoRecord) {
    UpnpFake::Deliver(UPNP_DISCOVERY_SEARCH_RESULT, nullptr);
    ASSERT_EQ(g_received.size(), 1);
    EXPECT_FALSE(g_received[0].discovery.has_value());
}

TEST_F(Upnp16Bridge, RecordsOfOtherEventsAreNotPassedOn) {
    const int record = 0;
    UpnpFake::Deliver(UPNP_EVENT_RECEIVED, &record);
    ASSERT_EQ(g_received.size(), 1);
    EXPECT_EQ(g_received[0].type, UPNP_EVENT_RECEIVED);
    EXPECT_FALSE(g_received[0].discovery.has_value());
}

TEST_F(Upnp16Bridge, EventsThatAreLateStillReachTheCallback) {
    Upnp16::UpnpUnRegisterClient(m_handle);
    EXPECT_EQ(UpnpFake::Deliver(UPNP_DISCOVERY_SEARCH_TIMEOUT, nullptr), 42);
}

TEST_F(Upnp16Bridge, EventsReachTheCallbackThatWasRegisteredLast) {
    int cookie = 0;
    Upnp16::UpnpRegisterClient(ReceiveOtherwise, &cookie, &m_handle);
    EXPECT_EQ(UpnpFake::Deliver(UPNP_DISCOVERY_SEARCH_TIMEOUT, nullptr), 43);
}

TEST_F(Upnp16Bridge, CallsReturnLibupnpsCodes) {
    UpnpFake::SetResult("UpnpInit", -1);
    UpnpFake::SetResult("UpnpRegisterClient", -2);
    UpnpFake::SetResult("UpnpSearchAsync", -3);
    UpnpFake::SetResult("UpnpUnRegisterClient", -4);
    UpnpFake::SetResult("UpnpFinish", -5);
    EXPECT_EQ(Upnp16::UpnpInit("127.0.0.1", 1), -1);
    EXPECT_EQ(Upnp16::UpnpRegisterClient(Receive, nullptr, &m_handle), -2);
    EXPECT_EQ(Upnp16::UpnpSearchAsync(1, 2, "t", nullptr), -3);
    EXPECT_EQ(Upnp16::UpnpUnRegisterClient(1), -4);
    EXPECT_EQ(Upnp16::UpnpFinish(), -5);
}

TEST_F(Upnp16Bridge, SearchPassesItsArguments) {
    int cookie = 0;
    Upnp16::UpnpSearchAsync(9, 4, "ssdp:all", &cookie);
    EXPECT_EQ(UpnpFake::Calls().back(), "UpnpSearchAsync handle 9 4 ssdp:all");
    EXPECT_EQ(UpnpFake::SearchCookie(), &cookie);
}

class Upnp16Start : public ::testing::Test {
protected:
    void SetUp() override { UpnpFake::Reset(); }
};

#if UPNP_VERSION >= 11400

TEST_F(Upnp16Start, AddressIsTurnedIntoTheNameOfItsInterface) {
    EXPECT_EQ(Upnp16::UpnpInit("127.0.0.1", 49152), 0);
    EXPECT_THAT(UpnpFake::Calls(), ElementsAre("UpnpInit2 lo 49152"));
}

TEST_F(Upnp16Start, AddressThatNoInterfaceCarriesIsRefused) {
    for (const char* ip : {"192.0.2.1", "", "lo", "127.0.0.1 ", "::1"}) {
        EXPECT_EQ(Upnp16::UpnpInit(ip, 49152), UPNP_E_INVALID_INTERFACE) << ip;
    }
    EXPECT_THAT(UpnpFake::Calls(), IsEmpty());
}

#else

TEST_F(Upnp16Start, AddressIsPassedAsItIs) {
    EXPECT_EQ(Upnp16::UpnpInit("192.0.2.1", 65535), 0);
    EXPECT_THAT(UpnpFake::Calls(), ElementsAre("UpnpInit 192.0.2.1 65535"));
}

#endif

}  // namespace
