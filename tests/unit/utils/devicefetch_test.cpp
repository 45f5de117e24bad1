// A search that fetches descriptions with the stand-alone host's HTTP client, over the loopback.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/unit/support/scriptedserver.h"
#include "tests/unit/support/upnpfinder.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;
using ::testing::StartsWith;

class DeviceFetch : public ::testing::Test {
protected:
    void SetUp() override { m_finder.m_state = 1; }
    void TearDown() override { m_finder.m_state = 0; }  // libupnp was never started

    void Announce(const std::string& location) {
        Upnp_Discovery discovery = MakeDiscovery(location);
        EXPECT_EQ(UpnpFinder::CallbackHandler(UPNP_DISCOVERY_SEARCH_RESULT, &discovery, &m_finder),
                  0);
    }

    static std::string Location(const ScriptedServer& server) {
        return "http://127.0.0.1:" + std::to_string(server.Port()) + "/desc.xml";
    }

    UpnpFinder m_finder{"127.0.0.1", 0, 10};
};

TEST_F(DeviceFetch, DescriptionIsRequestedAndHandedOver) {
    const ScriptedServer server("HTTP/1.1 200 OK\r\nContent-Length: 7\r\n\r\n<root/>");
    Announce(Location(server));
    EXPECT_THAT(m_finder.Found(), ElementsAre(Pair("<root/>", Location(server))));
    ASSERT_THAT(server.Requests(), SizeIs(1));
    EXPECT_THAT(server.Requests()[0], StartsWith("GET /desc.xml HTTP/1.1\r\n"));
    EXPECT_THAT(server.Requests()[0], HasSubstr("application/xml; charset=UTF-8\r\n"));
}

TEST_F(DeviceFetch, BodyWithoutALengthIsReadUpToTwoKibibytes) {
    const ScriptedServer server("HTTP/1.0 200 OK\r\n\r\n" + std::string(5000, 'x'));
    Announce(Location(server));
    EXPECT_THAT(m_finder.Found(), ElementsAre(Pair(std::string(2048, 'x'), Location(server))));
}

TEST_F(DeviceFetch, ErrorPageIsNotADescription) {
    const ScriptedServer server("HTTP/1.1 404 Not Found\r\nContent-Length: 4\r\n\r\nnone");
    Announce(Location(server));
    EXPECT_THAT(server.Requests(), SizeIs(1));
    EXPECT_THAT(m_finder.Found(), IsEmpty());
}

TEST_F(DeviceFetch, DeviceOfAnotherSubnetIsNotAsked) {
    const ScriptedServer server("HTTP/1.1 200 OK\r\nContent-Length: 7\r\n\r\n<root/>");
    UpnpFinder finder("192.0.2.1", 0, 10);
    finder.m_state = 1;
    Upnp_Discovery discovery = MakeDiscovery(Location(server));
    EXPECT_EQ(UpnpFinder::CallbackHandler(UPNP_DISCOVERY_SEARCH_RESULT, &discovery, &finder), 0);
    finder.m_state = 0;
    EXPECT_THAT(server.Requests(), IsEmpty());
    EXPECT_THAT(finder.Found(), IsEmpty());
}

// A colon in the path makes the path a part of the host, which no subnet holds.
TEST_F(DeviceFetch, HostThatHoldsAPathIsNotAsked) {
    const ScriptedServer server("HTTP/1.1 200 OK\r\nContent-Length: 7\r\n\r\n<root/>");
    Announce("http://127.0.0.1/d:" + std::to_string(server.Port()) + "/");
    EXPECT_THAT(server.Requests(), IsEmpty());
    EXPECT_THAT(m_finder.Found(), IsEmpty());
}

}  // namespace
