#include "tools/lanscout-sim/upnp/ssdp.h"

#include <gmock/gmock.h>

using lansim::IdentitiesFor;
using lansim::Misbehaviour;
using lansim::ParseSearch;
using lansim::SsdpError;
using lansim::SsdpRules;
using lansim::SsdpSearch;
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

constexpr const char* kGood = "MAN: \"ssdp:discover\"\r\nMX: 3\r\nST: upnp:rootdevice\r\n";

// "TARGET WAIT", or why it is refused.
std::string Read(const std::string& bytes, SsdpRules rules = SsdpRules::Multicast) {
    const auto parsed = ParseSearch(bytes, rules);
    if (const auto* error = std::get_if<SsdpError>(&parsed)) {
        return std::string(NameOf(*error));
    }
    const auto& search = std::get<SsdpSearch>(parsed);
    return search.target + " " + std::to_string(search.longestWaitSeconds);
}

TEST(SimSsdp, SearchTellsTargetAndWait) {
    EXPECT_EQ(Read(Search(kGood)), "upnp:rootdevice 3");
}

TEST(SimSsdp, FieldNamesKnowNoCaseAndLinesMayEndInLfAlone) {
    EXPECT_EQ(Read("M-SEARCH * HTTP/1.1\nhost:239.255.255.250\nman:\"ssdp:discover\"\n"
                   "st:  ssdp:all \nmx:2\n\n"),
              "ssdp:all 2");
}

TEST(SimSsdp, WaitMustBeANumber) {
    const auto waitOf = [](const std::string& text, SsdpRules rules) {
        return Read(Search("MAN: \"ssdp:discover\"\r\nST: x\r\n" + text), rules);
    };
    const std::pair<std::string, std::string> cases[] = {
        {"", "noWait"},
        {"MX: 0\r\n", "x 0"},
        {"MX: 120\r\n", "x 120"},
        {"MX: 100000\r\n", "x 120"},
        {"MX: -7\r\n", "wrongWait"},
        {"MX: soon\r\n", "wrongWait"},
        {"MX: 3 s\r\n", "wrongWait"},
        {"MX: 99999999999999999999\r\n", "wrongWait"},
    };
    for (const auto& [field, expected] : cases) {
        EXPECT_EQ(waitOf(field, SsdpRules::Multicast), expected) << field;
    }
    EXPECT_EQ(waitOf("", SsdpRules::Lenient), "x 1");
    EXPECT_EQ(waitOf("MX: soon\r\n", SsdpRules::Lenient), "x 1");
    EXPECT_EQ(waitOf("", SsdpRules::Unicast), "x 0") << "nobody else answers a unicast search";
}

TEST(SimSsdp, HostMustBeThereAndBeTheGroup) {
    const std::string begin = "M-SEARCH * HTTP/1.1\r\n";
    const std::string other = begin + "HOST: 10.0.0.1:1900\r\n" + kGood + "\r\n";
    EXPECT_EQ(Read(begin + kGood + "\r\n"), "noHost");
    EXPECT_EQ(Read(begin + kGood + "\r\n", SsdpRules::Unicast), "noHost");
    EXPECT_EQ(Read(begin + kGood + "\r\n", SsdpRules::Lenient), "upnp:rootdevice 3");
    EXPECT_EQ(Read(other), "wrongHost");
    EXPECT_EQ(Read(other, SsdpRules::Unicast), "upnp:rootdevice 3");
}

TEST(SimSsdp, WhatIsNoSearchIsNone) {
    EXPECT_EQ(Read(""), "otherMessage");
    EXPECT_EQ(Read("NOTIFY * HTTP/1.1\r\nNTS: ssdp:alive\r\n\r\n"), "otherMessage");
    EXPECT_EQ(Read(Search("ST: ssdp:all\r\n")), "noMan");
    EXPECT_EQ(Read(Search("MAN: \"ssdp:discover\"\r\n")), "noTarget");
    EXPECT_EQ(Read("M-SEARCH * HTTP/1.1"), "noMan");
}

TEST(SimSsdp, WholeUrnIsTheDevicesType) {
    UpnpDevice device = Television();
    device.kind = "urn:dial-multiscreen-org:device:dial:1";
    EXPECT_THAT(IdentitiesFor(device, device.kind), SizeIs(1));
    EXPECT_THAT(DescriptionOf(device), HasSubstr("<deviceType>" + device.kind + "</deviceType>"));
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
