// How a device's description is fetched, seen from CallbackHandler, the fetch being file-local.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/support/recordinghost.h"
#include "tests/unit/support/upnpfake.h"
#include "tests/unit/support/upnpfinder.h"

namespace {

std::size_t g_refusedBytes = 0;  // new char[] of this many bytes fails

}  // namespace

extern "C" void* __real__Znam(std::size_t size);
extern "C" void* __wrap__Znam(std::size_t size) {
    if (size == g_refusedBytes) {
        throw std::bad_alloc();
    }
    return __real__Znam(size);
}

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

constexpr const char* kLocation = "http://192.168.1.20:49152/desc.xml";

class DeviceDescription : public ::testing::Test {
protected:
    void SetUp() override {
        RecordingHost::Reset();
        UpnpFake::Reset();
        RecordingHost::SetHttp(0, "5", Delivering("<xml>"));
        m_finder.m_state = 1;
    }

    void TearDown() override {
        EXPECT_EQ(RecordingHost::LiveHttpClients(), 0);
        g_refusedBytes = 0;
    }

    // What the derived class was handed; nothing if the fetch failed.
    std::vector<std::pair<std::string, std::string>> Fetch(const std::string& location) {
        Upnp_Discovery discovery = MakeDiscovery(location);
        EXPECT_EQ(UpnpFinder::CallbackHandler(UPNP_DISCOVERY_SEARCH_RESULT, &discovery, &m_finder),
                  0);
        return m_finder.Found();
    }

    // The one request that fetching it made.
    RecordingHost::HttpUse RequestFor(const std::string& location) {
        const std::size_t before = RecordingHost::HttpUses().size();
        Fetch(location);
        const auto uses = RecordingHost::HttpUses();
        if (uses.size() != before + 1) {
            ADD_FAILURE() << location << " made " << uses.size() - before << " requests";
            return {};
        }
        return uses.back();
    }

    void ExpectNoRequest(const std::string& location) {
        EXPECT_THAT(Fetch(location), IsEmpty()) << location;
        EXPECT_THAT(RecordingHost::HttpUses(), IsEmpty()) << location;
        EXPECT_THAT(RecordingHost::SubnetAsks(), IsEmpty()) << location;
    }

    // The size of the one read of a body whose length header has this text.
    std::vector<int> ReadSizesFor(const std::string& contentLength) {
        RecordingHost::SetHttp(0, contentLength, Delivering("<xml>"));
        return RequestFor("http://192.168.1.20/" + std::to_string(++m_locations)).readSizes;
    }

    UpnpFinder m_finder{"192.168.1.2", 0, 10};
    int m_locations = 0;
};

TEST_F(DeviceDescription, DocumentIsHandedOverWithItsLocation) {
    EXPECT_THAT(Fetch(kLocation), ElementsAre(Pair("<xml>", kLocation)));
}

TEST_F(DeviceDescription, RequestGoesToHostPortAndPathOfTheLocation) {
    const RecordingHost::HttpUse use = RequestFor(kLocation);
    EXPECT_EQ(use.host, "192.168.1.20");
    EXPECT_EQ(use.port, 49152);
    EXPECT_EQ(use.path, "/desc.xml");
}

TEST_F(DeviceDescription, ClientGetsItsSettingsInOrder) {
    EXPECT_THAT(RequestFor(kLocation).init,
                ElementsAre("/desc.xml", "192.168.1.20", "49152", "", "", "5", "true", "true",
                            "false", "2", "", "false", "true"));
}

TEST_F(DeviceDescription, RequestHasNoBodyAndNamesItsContentType) {
    const RecordingHost::HttpUse use = RequestFor(kLocation);
    EXPECT_EQ(use.method, 0);
    EXPECT_EQ(use.body, "");
    EXPECT_EQ(use.contentType, "application/xml; charset=UTF-8");
}

TEST_F(DeviceDescription, PortIsEightyWhenTheLocationHasNone) {
    const RecordingHost::HttpUse use = RequestFor("http://192.168.1.20/a/b.xml?c");
    EXPECT_EQ(use.host, "192.168.1.20");
    EXPECT_EQ(use.port, 80);
    EXPECT_EQ(use.path, "/a/b.xml?c");
}

TEST_F(DeviceDescription, LocationWithoutTwoSlashesMakesNoRequest) {
    ExpectNoRequest("http:/192.168.1.20/desc.xml");
    ExpectNoRequest("192.168.1.20:80/desc.xml");
    ExpectNoRequest("");
}

TEST_F(DeviceDescription, LocationWithoutASlashAfterTheHostMakesNoRequest) {
    ExpectNoRequest("http://192.168.1.20");
    ExpectNoRequest("http://192.168.1.20:49152");
    ExpectNoRequest("//");
}

TEST_F(DeviceDescription, SchemeIsNotLookedAt) {
    for (const char* location : {"//192.168.1.20/d", "ftp://192.168.1.20/d", "?//192.168.1.20/d"}) {
        const RecordingHost::HttpUse use = RequestFor(location);
        EXPECT_EQ(use.host, "192.168.1.20");
        EXPECT_EQ(use.path, "/d");
    }
}

TEST_F(DeviceDescription, FirstTwoSlashesCount) {
    const RecordingHost::HttpUse use = RequestFor("http://192.168.1.20//d");
    EXPECT_EQ(use.host, "192.168.1.20");
    EXPECT_EQ(use.path, "//d");
}

TEST_F(DeviceDescription, ThirdSlashInARowLeavesAnEmptyHost) {
    const RecordingHost::HttpUse use = RequestFor("http:///d");
    EXPECT_EQ(use.host, "");
    EXPECT_EQ(use.path, "/d");
    EXPECT_EQ(use.port, 80);
}

TEST_F(DeviceDescription, ColonBehindTheSlashPutsThePathIntoTheHost) {
    const RecordingHost::HttpUse use = RequestFor("http://192.168.1.20/a:8080/b");
    EXPECT_EQ(use.host, "192.168.1.20/a");
    EXPECT_EQ(use.port, 8080);
    EXPECT_EQ(use.path, "/a:8080/b");
}

TEST_F(DeviceDescription, ColonAtTheVeryEndLeavesAnEmptyPort) {
    const RecordingHost::HttpUse use = RequestFor("http://192.168.1.20/a:");
    EXPECT_EQ(use.host, "192.168.1.20/a");
    EXPECT_EQ(use.port, 0);
}

TEST_F(DeviceDescription, PortIsReadUpToTheFirstNonDigit) {
    EXPECT_EQ(RequestFor("http://h:80x/").port, 80);
    EXPECT_EQ(RequestFor("http://h: 81/").port, 81);
    EXPECT_EQ(RequestFor("http://h:82:83/").port, 82);
    EXPECT_EQ(RequestFor("http://h:-1/").port, -1);
}

TEST_F(DeviceDescription, PortWithoutDigitsIsZero) {
    EXPECT_EQ(RequestFor("http://h:/").port, 0);
    EXPECT_EQ(RequestFor("http://h:x/").port, 0);
}

TEST_F(DeviceDescription, PortIsCutToThirtyTwoBits) {
    EXPECT_EQ(RequestFor("http://h:4294967376/").port, 80);
    EXPECT_EQ(RequestFor("http://h:2147483648/").port, INT_MIN);
    EXPECT_EQ(RequestFor("http://h:99999999999999999999/").port, -1);
}

TEST_F(DeviceDescription, HostIsTestedAgainstTheLocalAddress) {
    Fetch(kLocation);
    EXPECT_THAT(RecordingHost::SubnetAsks(), ElementsAre(Pair("192.168.1.20", "192.168.1.2")));
}

TEST_F(DeviceDescription, DeviceOutsideTheSubnetIsNotAsked) {
    RecordingHost::SetSameSubnet(false);
    EXPECT_THAT(Fetch(kLocation), IsEmpty());
    EXPECT_THAT(RecordingHost::HttpUses(), IsEmpty());
}

TEST_F(DeviceDescription, FailedRequestIsNotRead) {
    for (const int result : {1, -1, 404}) {
        RecordingHost::SetHttp(result, "5", Delivering("<xml>"));
        const RecordingHost::HttpUse use =
            RequestFor("http://192.168.1.20/" + std::to_string(result));
        EXPECT_THAT(use.headerKeys, IsEmpty());
        EXPECT_THAT(use.readSizes, IsEmpty());
    }
    EXPECT_THAT(m_finder.Found(), IsEmpty());
}

TEST_F(DeviceDescription, LengthHeaderIsAskedForOnce) {
    EXPECT_THAT(RequestFor(kLocation).headerKeys, ElementsAre(1));
}

TEST_F(DeviceDescription, AsManyBytesAreReadAsTheLengthHeaderSays) {
    EXPECT_THAT(ReadSizesFor("1"), ElementsAre(1));
    EXPECT_THAT(ReadSizesFor("70000"), ElementsAre(70000));
    EXPECT_THAT(ReadSizesFor("2147483647"), ElementsAre(INT_MAX));
}

TEST_F(DeviceDescription, WithoutAUsableLengthTwoKibibytesAreRead) {
    for (const char* length : {"", "0", "-5", "x", "0x10", "2147483648", "99999999999999999999"}) {
        EXPECT_THAT(ReadSizesFor(length), ElementsAre(2048)) << length;
    }
}

TEST_F(DeviceDescription, LengthIsReadUpToTheFirstNonDigit) {
    EXPECT_THAT(ReadSizesFor(" 12, 13"), ElementsAre(12));
}

TEST_F(DeviceDescription, LengthIsCutToThirtyTwoBits) {
    EXPECT_THAT(ReadSizesFor("4294967299"), ElementsAre(3));
}

TEST_F(DeviceDescription, ShortReadIsTheWholeDocument) {
    RecordingHost::SetHttp(0, "100", Delivering("<half"));
    EXPECT_THAT(RequestFor(kLocation).readSizes, ElementsAre(100));
    EXPECT_THAT(m_finder.Found(), ElementsAre(Pair("<half", kLocation)));
}

TEST_F(DeviceDescription, DocumentEndsAtTheLengthThatWasRead) {
    RecordingHost::SetHttp(0, "", Delivering(std::string(3000, 'x')));
    EXPECT_THAT(Fetch(kLocation), ElementsAre(Pair(std::string(2048, 'x'), kLocation)));
}

TEST_F(DeviceDescription, ZeroBytesOfADocumentAreKept) {
    const std::string document("a\0b", 3);
    RecordingHost::SetHttp(0, "3", Delivering(document));
    EXPECT_THAT(Fetch(kLocation), ElementsAre(Pair(document, kLocation)));
}

TEST_F(DeviceDescription, ReadOfNothingIsAFailure) {
    for (const int count : {0, -1, INT_MIN}) {
        RecordingHost::SetHttp(0, "5", [count](char*, int) { return count; });
        EXPECT_THAT(Fetch("http://h/" + std::to_string(count)), IsEmpty()) << count;
    }
    EXPECT_EQ(RecordingHost::HttpUses().size(), 3);
}

TEST_F(DeviceDescription, BufferThatCannotBeHadIsAFailure) {
    RecordingHost::SetHttp(0, "70000", Delivering("<xml>"));
    g_refusedBytes = 70001;
    EXPECT_THAT(RequestFor(kLocation).readSizes, IsEmpty());
    EXPECT_THAT(m_finder.Found(), IsEmpty());
}

TEST_F(DeviceDescription, ClientIsGoneWhenTheDerivedClassIsTold) {
    int clients = -1;
    m_finder.m_during = [&](const std::string&, const char*) {
        clients = RecordingHost::LiveHttpClients();
    };
    Fetch(kLocation);
    EXPECT_EQ(clients, 0);
}

}  // namespace
