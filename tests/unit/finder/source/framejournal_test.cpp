#include "finder/source/framejournal.h"

#include <gmock/gmock.h>

using namespace Lanscout;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr char kMac[] = "00:1B:FF:01:02:0A";
constexpr char kOtherMac[] = "00:1B:FF:01:02:0B";
constexpr char kInterface[] = "eth0";
const FrameJournal::Time kStart{};

std::string Match(const std::string& endpoint) {
    return "<d:ProbeMatch><a:EndpointReference><a:Address>" + endpoint +
           "</a:Address></a:EndpointReference></d:ProbeMatch>";
}

std::string Reply(const std::string& matches) {
    return "<e:Envelope xmlns:e='http://www.w3.org/2003/05/soap-envelope'"
           " xmlns:a='http://schemas.xmlsoap.org/ws/2004/08/addressing'"
           " xmlns:d='http://schemas.xmlsoap.org/ws/2005/04/discovery'><e:Body><d:ProbeMatches>" +
           matches + "</d:ProbeMatches></e:Body></e:Envelope>";
}

const std::string kReply = Reply(Match("urn:uuid:1"));

struct Heard {
    std::string mac = kMac;
    std::string from = "10.0.0.7";
    std::string payload = kReply;
    std::string to = "10.0.0.1";
    std::uint16_t port = 3702;
};

class FrameJournalTest : public testing::Test {
protected:
    static FrameJournal::Machine Machine(bool drops) {
        LocalAddress local{kInterface, "10.0.0.1", "", true, false, true};
        local.prefixBits = 24;
        local.ipv6 = {{"fe80::1", 64, true}};
        return {{local},
                [](const std::string& mac) { return mac == kMac ? "Big Maker" : ""; },
                [drops](const std::string&, const std::string&) { return drops; }};
    }

    FrameJournal Journal(bool drops = false, std::vector<AddressRange> asked = {}) {
        return {{{kInterface, "10.0.0.1"}},
                std::move(asked),
                Machine(drops),
                [this](const Message& message) {
                    if (const auto* sighting = std::get_if<SightingMessage>(&message)) {
                        m_sightings.push_back(sighting->sighting);
                    } else if (const auto* notice = std::get_if<NoticeMessage>(&message)) {
                        m_notices.push_back(*notice);
                    }
                }};
    }

    static void Take(FrameJournal& journal, const Heard& heard) {
        journal.TakeReceived(
            DatagramFrame{heard.mac, heard.from, heard.to, heard.port, 40000, heard.payload},
            kInterface, kStart);
    }

    static void Probe(FrameJournal& journal, FrameJournal::Time when = kStart) {
        journal.TakeSent(
            DatagramFrame{"02:00:00:00:00:01", "10.0.0.1", "239.255.255.250", 40000, 3702, ""},
            kInterface, when);
    }

    static void Ask(FrameJournal& journal, const std::string& from, const std::string& wanted,
                    const std::string& mac = kMac, std::chrono::milliseconds after = 100ms) {
        journal.TakeReceived(ArpRequestFrame{mac, from, wanted}, kInterface, kStart + after);
    }

    std::vector<std::string> Uuids() const {
        std::vector<std::string> uuids;
        for (const Sighting& sighting : m_sightings) {
            uuids.push_back(sighting.device.uuid);
        }
        return uuids;
    }

    std::vector<Sighting> m_sightings;
    std::vector<NoticeMessage> m_notices;
};

}  // namespace

TEST_F(FrameJournalTest, ReplyTellsMacAddressAndId) {
    FrameJournal journal = Journal();
    Take(journal, {});
    ASSERT_THAT(m_sightings, SizeIs(1));
    EXPECT_EQ(m_sightings[0].source, SourceId::Frames);
    EXPECT_EQ(m_sightings[0].via, (Target{kInterface, "10.0.0.1"}));
    EXPECT_EQ(m_sightings[0].device.mac, kMac);
    EXPECT_EQ(m_sightings[0].device.ip, "10.0.0.7");
    EXPECT_EQ(m_sightings[0].device.uuid, "urn:uuid:1");
    EXPECT_EQ(m_sightings[0].device.reach, Reach::Local);
}

TEST_F(FrameJournalTest, SameReplyIsToldOnce) {
    FrameJournal journal = Journal();
    Take(journal, {});
    Take(journal, {});
    EXPECT_THAT(m_sightings, SizeIs(1));
}

TEST_F(FrameJournalTest, TwoMachinesAtOneAddressAreTwo) {
    FrameJournal journal = Journal();
    Take(journal, {});
    Take(journal, {.mac = kOtherMac, .payload = Reply(Match("urn:uuid:2"))});
    ASSERT_THAT(m_sightings, SizeIs(2));
    EXPECT_EQ(m_sightings[1].device.mac, kOtherMac);
    EXPECT_EQ(m_sightings[1].device.uuid, "urn:uuid:2");
}

TEST_F(FrameJournalTest, OneIdAtTwoMacAddressesIsToldForEach) {
    FrameJournal journal = Journal();
    Take(journal, {});
    Take(journal, {.mac = kOtherMac});
    EXPECT_THAT(m_sightings, SizeIs(2));
}

TEST_F(FrameJournalTest, EachMatchOfAReplyIsTold) {
    FrameJournal journal = Journal();
    Take(journal, {.payload = Reply(Match("urn:uuid:1") + Match("urn:uuid:2"))});
    EXPECT_THAT(Uuids(), ElementsAre("urn:uuid:1", "urn:uuid:2"));
}

TEST_F(FrameJournalTest, ReplyThatCannotBeReadTellsTheMacAddressStill) {
    FrameJournal journal = Journal();
    Take(journal, {.payload = "no XML"});
    EXPECT_THAT(Uuids(), ElementsAre(""));
}

TEST_F(FrameJournalTest, FirstFragmentOfAReplyTellsTheId) {
    FrameJournal journal = Journal();
    Take(journal, {.payload = kReply.substr(0, kReply.find("</a:Address>") + 12)});
    EXPECT_THAT(Uuids(), ElementsAre("urn:uuid:1"));
}

TEST_F(FrameJournalTest, OtherPortsAndOtherMachinesDoNotCount) {
    FrameJournal journal = Journal();
    Take(journal, {.port = 3703});
    Take(journal, {.to = "10.0.0.2"});
    Take(journal, {.to = "239.255.255.250"});
    EXPECT_THAT(m_sightings, IsEmpty());
}

TEST_F(FrameJournalTest, Ipv6ReplyHasItsZone) {
    FrameJournal journal = Journal();
    Take(journal, {.from = "fe80::7", .to = "fe80::1"});
    ASSERT_THAT(m_sightings, SizeIs(1));
    EXPECT_EQ(m_sightings[0].device.ip, "");
    EXPECT_THAT(m_sightings[0].device.ipv6, ElementsAre("fe80::7%eth0"));
}

TEST_F(FrameJournalTest, ReplyFromAnotherSubnetIsForeign) {
    FrameJournal journal = Journal();
    Take(journal, {.from = "192.168.77.5"});
    ASSERT_THAT(m_sightings, SizeIs(1));
    EXPECT_EQ(m_sightings[0].device.reach, Reach::Foreign);
    EXPECT_THAT(m_notices, IsEmpty());
}

TEST_F(FrameJournalTest, WhoWasAskedBehindARouterHasNotTheRoutersMacAddress) {
    FrameJournal journal = Journal(false, {{0xC0A84D00, 0xC0A84DFF}, {0x0A000000, 0x0A0000FF}});
    Take(journal, {.from = "192.168.77.5"});
    EXPECT_THAT(m_sightings, IsEmpty());
    Take(journal, {.from = "192.168.78.5"});
    EXPECT_THAT(m_sightings, SizeIs(1));
    Take(journal, {});  // asked too, but in our subnet
    EXPECT_THAT(m_sightings, SizeIs(2));
}

TEST_F(FrameJournalTest, ReplyThatTheKernelDropsIsSaidOnce) {
    FrameJournal journal = Journal(true);
    Take(journal, {});
    EXPECT_THAT(m_notices, IsEmpty());  // it is in our subnet
    Take(journal, {.from = "192.168.77.5"});
    Take(journal, {.from = "192.168.77.6"});
    ASSERT_THAT(m_notices, SizeIs(1));
    EXPECT_EQ(m_notices[0].target, (Target{kInterface, "10.0.0.1"}));
    EXPECT_THAT(m_notices[0].what, HasSubstr("192.168.77.5"));
    EXPECT_THAT(m_notices[0].remedy, HasSubstr("net.ipv4.conf.eth0.rp_filter=0"));
}

TEST_F(FrameJournalTest, WhoAsksFromAnotherSubnetAfterAProbeIsTold) {
    FrameJournal journal = Journal();
    Probe(journal);
    Ask(journal, "192.168.77.5", "192.168.77.2");
    ASSERT_THAT(m_notices, SizeIs(1));
    EXPECT_EQ(m_notices[0].what,
              "a device of 192.168.77.0/24 is on this wire: 192.168.77.5 with MAC address "
              "00:1B:FF:01:02:0A (Big Maker)");
    EXPECT_EQ(m_notices[0].remedy, "To reach it: ip address add 192.168.77.3/24 dev eth0");
    EXPECT_THAT(m_sightings, IsEmpty());
    Ask(journal, "192.168.77.5", "192.168.77.2");
    EXPECT_THAT(m_notices, SizeIs(1));
}

TEST_F(FrameJournalTest, OtherRequestsAreNothingNew) {
    FrameJournal journal = Journal();
    Ask(journal, "192.168.77.5", "192.168.77.1");  // nobody has been asked yet
    Probe(journal);
    Ask(journal, "10.0.0.7", "10.0.0.1");
    Ask(journal, "10.0.0.7", "192.168.77.1");
    Ask(journal, "0.0.0.0", "192.168.77.5");
    Ask(journal, "192.168.77.5", "192.168.77.5");  // it announces itself
    Ask(journal, "192.168.77.5", "192.168.77.1", kMac, 5s);
    EXPECT_THAT(m_notices, IsEmpty());
}

TEST_F(FrameJournalTest, OtherDatagramsOfOursAreNoProbe) {
    FrameJournal journal = Journal();
    journal.TakeSent(DatagramFrame{"02:00:00:00:00:01", "10.0.0.1", "10.0.0.7", 3702, 40000, ""},
                     kInterface, kStart);
    Ask(journal, "192.168.77.5", "192.168.77.1");
    EXPECT_THAT(m_notices, IsEmpty());
}

TEST_F(FrameJournalTest, FloodIsBounded) {
    FrameJournal journal = Journal();
    Probe(journal);
    for (int i = 0; i < 100; ++i) {
        const std::string end = std::to_string(i);
        Ask(journal, "192.168.77." + end, "192.168.77.254", std::string(kMac) + end);
    }
    EXPECT_LE(m_notices.size(), 16U);
    for (int i = 0; i < 70000; ++i) {
        Take(journal, {.mac = kMac + std::to_string(i), .payload = ""});
    }
    EXPECT_LE(m_sightings.size(), 65536U);
}
