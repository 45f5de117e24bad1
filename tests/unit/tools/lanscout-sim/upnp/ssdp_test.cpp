#include "tools/lanscout-sim/upnp/ssdp.h"

#include <gmock/gmock.h>

using lansim::IdentitiesFor;
using lansim::Misbehaviour;
using lansim::ParseSearch;
using lansim::UpnpDevice;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

namespace {

UpnpDevice Television() {
    UpnpDevice device;
    device.name = "TV <1>";
    device.maker = "Orrin";
    device.model = "OT-55";
    device.kind = "MediaRenderer";
    device.uuid = "11111111-2222-4333-8444-555555555555";
    device.ip = *lansim::ParseIpv4("10.99.0.10");
    device.port = 49152;
    return device;
}

UpnpDevice Television(Misbehaviour kind) {
    UpnpDevice device = Television();
    device.misbehaviours = {kind};
    return device;
}

std::string Search(const std::string& fields) {
    return "M-SEARCH * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\n" + fields + "\r\n";
}

TEST(SimSsdp, SearchTellsTargetAndWait) {
    const auto search =
        ParseSearch(Search("MAN: \"ssdp:discover\"\r\nMX: 3\r\nST: upnp:rootdevice\r\n"));
    ASSERT_TRUE(search);
    EXPECT_EQ(search->target, "upnp:rootdevice");
    EXPECT_EQ(search->longestWaitSeconds, 3);
}

TEST(SimSsdp, FieldNamesKnowNoCaseAndLinesMayEndInLfAlone) {
    const auto search =
        ParseSearch("M-SEARCH * HTTP/1.1\nman:\"ssdp:discover\"\nst:  ssdp:all \nmx:2\n\n");
    ASSERT_TRUE(search);
    EXPECT_EQ(search->target, "ssdp:all");
    EXPECT_EQ(search->longestWaitSeconds, 2);
}

TEST(SimSsdp, OddWaitsAreBroughtIntoRange) {
    const auto waitOf = [](const std::string& text) {
        return ParseSearch(Search("MAN: \"ssdp:discover\"\r\nST: x\r\n" + text))
            ->longestWaitSeconds;
    };
    EXPECT_EQ(waitOf(""), 1);
    EXPECT_EQ(waitOf("MX: 0\r\n"), 1);
    EXPECT_EQ(waitOf("MX: -7\r\n"), 1);
    EXPECT_EQ(waitOf("MX: soon\r\n"), 1);
    EXPECT_EQ(waitOf("MX: 100000\r\n"), 120);
    EXPECT_EQ(waitOf("MX: 99999999999999999999\r\n"), 1);
}

TEST(SimSsdp, WhatIsNoSearchIsNone) {
    EXPECT_FALSE(ParseSearch(""));
    EXPECT_FALSE(ParseSearch("NOTIFY * HTTP/1.1\r\nNTS: ssdp:alive\r\n\r\n"));
    EXPECT_FALSE(ParseSearch(Search("ST: ssdp:all\r\n")));
    EXPECT_FALSE(ParseSearch(Search("MAN: \"ssdp:discover\"\r\n")));
    EXPECT_FALSE(ParseSearch("M-SEARCH * HTTP/1.1"));
}

TEST(SimSsdp, DeviceAnswersForEachOfItsIdentities) {
    const UpnpDevice device = Television();
    EXPECT_THAT(IdentitiesFor(device, "ssdp:all"), SizeIs(3));
    EXPECT_THAT(IdentitiesFor(device, "upnp:rootdevice"), SizeIs(1));
    EXPECT_THAT(IdentitiesFor(device, "uuid:" + device.uuid), SizeIs(1));
    EXPECT_THAT(IdentitiesFor(device, "urn:schemas-upnp-org:device:MediaRenderer:1"), SizeIs(1));
    EXPECT_THAT(IdentitiesFor(device, "urn:schemas-upnp-org:device:MediaServer:1"), SizeIs(0));
}

TEST(SimSsdp, AnswerCarriesWhatASearcherNeeds) {
    const UpnpDevice device = Television();
    const std::string answer =
        SearchAnswer(device, IdentitiesFor(device, "upnp:rootdevice")[0], LocationOf(device));
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\nCACHE-CONTROL: max-age=1800\r\n"));
    EXPECT_THAT(answer, HasSubstr("\r\nLOCATION: http://10.99.0.10:49152/description.xml\r\n"));
    EXPECT_THAT(answer, HasSubstr("\r\nEXT:\r\n"));
    EXPECT_THAT(answer, HasSubstr("\r\nST: upnp:rootdevice\r\n"));
    EXPECT_THAT(
        answer,
        HasSubstr("\r\nUSN: uuid:11111111-2222-4333-8444-555555555555::upnp:rootdevice\r\n"));
    EXPECT_THAT(answer, ::testing::EndsWith("\r\n\r\n"));
}

TEST(SimSsdp, NoMaxAgeMeansNoCacheControl) {
    const UpnpDevice device = Television(Misbehaviour::UpnpNoMaxAge);
    EXPECT_THAT(SearchAnswer(device, IdentitiesOf(device)[0], LocationOf(device)),
                Not(HasSubstr("CACHE-CONTROL")));
}

TEST(SimSsdp, NoticesSayAliveAndByebye) {
    const UpnpDevice device = Television();
    const auto identity = IdentitiesOf(device)[2];
    const std::string alive = AliveNotice(device, identity, LocationOf(device));
    EXPECT_THAT(alive, StartsWith("NOTIFY * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\n"));
    EXPECT_THAT(alive, HasSubstr("\r\nNTS: ssdp:alive\r\n"));
    EXPECT_THAT(alive, HasSubstr("\r\nNT: urn:schemas-upnp-org:device:MediaRenderer:1\r\n"));
    const std::string byebye = lansim::ByebyeNotice(identity);
    EXPECT_THAT(byebye, HasSubstr("\r\nNTS: ssdp:byebye\r\n"));
    EXPECT_THAT(byebye, Not(HasSubstr("LOCATION")));
}

TEST(SimSsdp, LocationsMisbehaveAsTheirNamesSay) {
    using enum Misbehaviour;
    EXPECT_EQ(LocationOf(Television(UpnpLocationNoPath)), "http://10.99.0.10:49152");
    EXPECT_EQ(LocationOf(Television(UpnpLocationNoPort)), "http://10.99.0.10/description.xml");
    EXPECT_EQ(LocationOf(Television(UpnpLocationOtherSubnet)),
              "http://203.0.113.7:49152/description.xml");
    EXPECT_EQ(LocationOf(Television(UpnpLocationLoopback)),
              "http://127.0.0.1:49152/description.xml");
    EXPECT_EQ(LocationOf(Television(UpnpLocationIpv6)),
              "http://[fe80::a63:a]:49152/description.xml");
    EXPECT_THAT(LocationOf(Television(UpnpLocationNoUrl)), Not(HasSubstr("//")));
    EXPECT_NE(LocationOf(Television(UpnpFlood), 1), LocationOf(Television(UpnpFlood), 2));
}

TEST(SimSsdp, DescriptionNamesTheDevice) {
    const std::string description = DescriptionOf(Television());
    EXPECT_THAT(description, HasSubstr("<friendlyName>TV &lt;1&gt;</friendlyName>"));
    EXPECT_THAT(description, HasSubstr("<manufacturer>Orrin</manufacturer>"));
    EXPECT_THAT(description, HasSubstr("<modelName>OT-55</modelName>"));
    EXPECT_THAT(description, HasSubstr("<UDN>uuid:11111111-2222-4333-8444-555555555555</UDN>"));
    EXPECT_THAT(description, HasSubstr("<presentationURL>http://10.99.0.10/</presentationURL>"));
}

}  // namespace
