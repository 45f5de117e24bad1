#include "tools/lanscout-sim/upnp/upnpresponder.h"

#include <gmock/gmock.h>

#include <set>

using lansim::Datagram;
using lansim::Endpoint;
using lansim::Ipv4;
using lansim::Misbehaviour;
using lansim::Outbox;
using lansim::SendResult;
using lansim::TimePoint;
using lansim::UpnpDevice;
using lansim::UpnpResponder;
using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::HasSubstr;
using ::testing::SizeIs;

namespace {

constexpr Endpoint kSearcher{Ipv4{0x0A630001}, 50000};
constexpr Endpoint kGroup{lansim::kMulticastGroup, lansim::kSsdpPort};
constexpr TimePoint kStart{};

class FakeNetwork : public lansim::Network {
public:
    int Descriptor() const override { return -1; }
    void Receive(const lansim::DatagramHandler&) override {}
    SendResult Send(const Datagram& datagram) override {
        m_sent.push_back(datagram);
        return SendResult::Sent;
    }

    std::vector<Datagram> m_sent;
};

class SimUpnpResponder : public ::testing::Test {
protected:
    SimUpnpResponder() {
        for (std::size_t i = 0; i < m_devices.size(); ++i) {
            m_devices[i].ip = Ipv4{0x0A63000A + static_cast<std::uint32_t>(i)};
            m_devices[i].uuid = "device-" + std::to_string(i);
            m_devices[i].port = 49152;
        }
    }

    void Search(UpnpResponder& responder, const std::string& target = "upnp:rootdevice",
                Endpoint to = kGroup) {
        responder.OnDatagram({kSearcher, to,
                              "M-SEARCH * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\n"
                              "MAN: \"ssdp:discover\"\r\nMX: 1\r\nST: " +
                                  target + "\r\n\r\n"},
                             kStart);
        m_outbox.SendDue(kStart + seconds(1), m_network);
    }

    std::deque<UpnpDevice> m_devices{3};
    Outbox m_outbox{1, 0};
    FakeNetwork m_network;
};

TEST_F(SimUpnpResponder, EachDeviceAnswersARootDeviceSearchOnceToTheSearcher) {
    UpnpResponder responder(m_devices, {}, m_outbox);
    Search(responder);
    ASSERT_THAT(m_network.m_sent, SizeIs(3));
    for (const auto& datagram : m_network.m_sent) {
        EXPECT_EQ(datagram.to, kSearcher);
        EXPECT_EQ(datagram.from.port, 1900);
    }
    EXPECT_EQ(m_devices[1].answersSent, 1U);
}

TEST_F(SimUpnpResponder, SearchForAUuidIsAnsweredByThatDevice) {
    UpnpResponder responder(m_devices, {}, m_outbox);
    Search(responder, "uuid:device-2");
    ASSERT_THAT(m_network.m_sent, SizeIs(1));
    EXPECT_EQ(m_network.m_sent[0].from.ip, m_devices[2].ip);
}

TEST_F(SimUpnpResponder, UnicastSearchIsAnsweredByItsAddressee) {
    UpnpResponder responder(m_devices, {}, m_outbox);
    Search(responder, "ssdp:all", {m_devices[0].ip, lansim::kSsdpPort});
    ASSERT_THAT(m_network.m_sent, SizeIs(3));
    EXPECT_EQ(m_network.m_sent[0].from.ip, m_devices[0].ip);
}

TEST_F(SimUpnpResponder, AnswersComeWithinTheSearchersWait) {
    UpnpResponder responder(m_devices, {.maxDelay = seconds(60)}, m_outbox);
    Search(responder);
    EXPECT_THAT(m_network.m_sent, SizeIs(3));
    EXPECT_EQ(m_outbox.NextDue(), std::nullopt);
}

TEST_F(SimUpnpResponder, AliveIsMulticastThriceForEachIdentity) {
    UpnpResponder responder(m_devices, {}, m_outbox);
    responder.SayAlive(kStart);
    m_outbox.SendDue(kStart + milliseconds(100), m_network);
    ASSERT_THAT(m_network.m_sent, SizeIs(9));
    EXPECT_EQ(m_network.m_sent.front().to, kGroup);
    EXPECT_THAT(m_network.m_sent.front().payload, HasSubstr("ssdp:alive"));
    m_outbox.SendDue(kStart + milliseconds(299), m_network);
    EXPECT_THAT(m_network.m_sent, SizeIs(9));
    m_outbox.SendDue(kStart + seconds(1), m_network);
    EXPECT_THAT(m_network.m_sent, SizeIs(27));
    EXPECT_EQ(m_devices[0].advertisementsSent, 9U);
}

TEST_F(SimUpnpResponder, AliveComesAgainBeforeHalfOfItsLifeIsOver) {
    UpnpResponder responder(m_devices, {}, m_outbox);
    responder.SayAlive(kStart);
    m_outbox.SendDue(kStart + seconds(1), m_network);
    ASSERT_TRUE(responder.NextDue());
    EXPECT_GE(*responder.NextDue(), kStart + seconds(450));
    responder.Run(kStart + seconds(900));
    m_outbox.SendDue(kStart + seconds(900), m_network);
    EXPECT_THAT(m_network.m_sent, SizeIs(27 + 9));
    responder.Run(kStart + seconds(901));
    EXPECT_EQ(m_outbox.NextDue(), std::nullopt);
    responder.Run(kStart + seconds(1800));
    m_outbox.SendDue(kStart + seconds(1800), m_network);
    EXPECT_THAT(m_network.m_sent, SizeIs(27 + 18));
}

TEST_F(SimUpnpResponder, ByebyeIsMulticastForEachIdentityAndTheLast) {
    UpnpResponder responder(m_devices, {}, m_outbox);
    responder.SayAlive(kStart);
    responder.SayByebye(kStart);
    EXPECT_EQ(responder.NextDue(), std::nullopt);
    m_outbox.SendDue(kStart, m_network);
    EXPECT_GE(m_network.m_sent.size(), 9U);
    EXPECT_THAT(m_network.m_sent.back().payload, HasSubstr("ssdp:byebye"));
}

TEST_F(SimUpnpResponder, FloodAnswersWith200DistinctLocations) {
    m_devices.resize(1);
    m_devices[0].misbehaviours = {Misbehaviour::UpnpFlood};
    UpnpResponder responder(m_devices, {}, m_outbox);
    Search(responder);
    Search(responder);
    std::set<std::string> payloads;
    for (const auto& datagram : m_network.m_sent) {
        payloads.insert(datagram.payload);
    }
    EXPECT_THAT(payloads, SizeIs(400));
}

TEST_F(SimUpnpResponder, AdvertiseOnlyDevicesAreSilentWhenAsked) {
    m_devices[0].misbehaviours = {Misbehaviour::UpnpAdvertiseOnly};
    UpnpResponder responder(m_devices, {}, m_outbox);
    Search(responder);
    EXPECT_THAT(m_network.m_sent, SizeIs(2));
    EXPECT_EQ(m_devices[0].searchesSeen, 1U);
}

TEST_F(SimUpnpResponder, ChattyDeviceAdvertisesEverySecondUntilByebye) {
    m_devices[0].misbehaviours = {Misbehaviour::UpnpChatty};
    UpnpResponder responder(m_devices, {}, m_outbox);
    responder.SayAlive(kStart);
    EXPECT_EQ(responder.NextDue(), kStart + seconds(1));
    m_outbox.SendDue(kStart + seconds(1), m_network);
    responder.Run(kStart + milliseconds(999));
    EXPECT_EQ(m_outbox.NextDue(), std::nullopt);
    responder.Run(kStart + seconds(1));
    m_outbox.SendDue(kStart + seconds(1), m_network);
    EXPECT_THAT(m_network.m_sent, SizeIs(30));
    EXPECT_EQ(responder.NextDue(), kStart + seconds(2));
    responder.SayByebye(kStart + seconds(1));
    EXPECT_EQ(responder.NextDue(), std::nullopt);
}

TEST_F(SimUpnpResponder, SearchThatIsRefusedIsCountedByItsReason) {
    UpnpResponder responder(m_devices, {}, m_outbox);
    const Datagram noHost{kSearcher, kGroup,
                          "M-SEARCH * HTTP/1.1\r\nMAN: \"ssdp:discover\"\r\nMX: 1\r\n"
                          "ST: ssdp:all\r\n\r\n"};
    EXPECT_EQ(responder.OnDatagram(noHost, kStart).refused, lansim::SsdpError::NoHost);
    EXPECT_EQ(responder.Counts().refused.at(lansim::SsdpError::NoHost), 1U);
    EXPECT_EQ(responder.Counts().searches, 0U);
    UpnpResponder lenient(m_devices, {.isLenient = true}, m_outbox);
    EXPECT_EQ(lenient.OnDatagram(noHost, kStart).answers, 3U);
}

TEST_F(SimUpnpResponder, OtherDatagramsAreCountedAndNotAnswered) {
    UpnpResponder responder(m_devices, {}, m_outbox);
    responder.OnDatagram({kSearcher, kGroup, "NOTIFY * HTTP/1.1\r\n\r\n"}, kStart);
    EXPECT_EQ(responder.Counts().datagrams, 1U);
    EXPECT_EQ(responder.Counts().searches, 0U);
    EXPECT_EQ(m_outbox.NextDue(), std::nullopt);
}

}  // namespace
