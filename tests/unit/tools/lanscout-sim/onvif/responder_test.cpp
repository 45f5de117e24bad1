#include "tools/lanscout-sim/onvif/responder.h"

#include <gmock/gmock.h>

using lansim::Camera;
using lansim::Datagram;
using lansim::Endpoint;
using lansim::Ipv4;
using lansim::Misbehaviour;
using lansim::Outbox;
using lansim::Responder;
using lansim::ResponderOptions;
using lansim::SendResult;
using lansim::TimePoint;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::SizeIs;

namespace {

constexpr Endpoint kSearcher{Ipv4{0x0A630001}, 3702};
constexpr Endpoint kGroup{lansim::kMulticastGroup, 3702};
constexpr TimePoint kStart{};

class FakeNetwork : public lansim::Network {
public:
    int Descriptor() const override { return -1; }
    void Receive(const lansim::DatagramHandler&) override {}
    SendResult Send(const Datagram& datagram) override {
        if (m_nextResult == SendResult::Sent) {
            m_sent.push_back(datagram);
        }
        return m_nextResult;
    }

    SendResult m_nextResult = SendResult::Sent;
    std::vector<Datagram> m_sent;
};

std::string ProbeText() {
    return R"(<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope"><s:Header>)"
           R"(<w:MessageID xmlns:w="http://schemas.xmlsoap.org/ws/2004/08/addressing">uuid:1)"
           R"(</w:MessageID></s:Header><s:Body>)"
           R"(<Probe xmlns="http://schemas.xmlsoap.org/ws/2005/04/discovery"/>)"
           R"(</s:Body></s:Envelope>)";
}

std::vector<Camera> Cameras(std::size_t count) {
    std::vector<Camera> cameras(count);
    for (std::size_t i = 0; i < count; ++i) {
        cameras[i].ip = Ipv4{0x0A63000A + static_cast<std::uint32_t>(i)};
    }
    return cameras;
}

class SimResponder : public ::testing::Test {
protected:
    // Asks once and sends all that is due within the longest delay.
    void Search(Responder& responder, Endpoint to = kGroup) {
        responder.OnDatagram({kSearcher, to, ProbeText()}, kStart);
        m_outbox.SendDue(kStart + milliseconds(500), m_network);
    }

    FakeNetwork m_network;
    Outbox m_outbox{1, 0};
};

TEST_F(SimResponder, SharedAddressIsAnsweredByTheHostThatWasMeant) {
    auto cameras = Cameras(2);
    cameras[1].ip = cameras[0].ip;
    cameras[0].mac = {2, 0, 0, 0, 0, 1};
    cameras[1].mac = {2, 0, 0, 0, 0, 2};
    Responder responder(cameras, ResponderOptions{}, m_outbox);
    Datagram probe{kSearcher, {cameras[0].ip, 3702}, ProbeText()};
    probe.toMac = cameras[1].mac;
    responder.OnDatagram(probe, kStart);
    EXPECT_EQ(cameras[0].probesSeen, 0U);
    EXPECT_EQ(cameras[1].probesSeen, 1U);
    m_outbox.SendDue(kStart + std::chrono::seconds(1), m_network);
    ASSERT_THAT(m_network.m_sent, SizeIs(1));
    EXPECT_EQ(m_network.m_sent[0].fromMac, cameras[1].mac);
}

TEST_F(SimResponder, SharedAddressWithoutEthernetIsAnsweredByAll) {
    auto cameras = Cameras(2);
    cameras[1].ip = cameras[0].ip;
    Responder responder(cameras, ResponderOptions{}, m_outbox);
    Search(responder, {cameras[0].ip, 3702});
    EXPECT_THAT(m_network.m_sent, SizeIs(2));
}

TEST_F(SimResponder, EveryCameraRepliesOnceToWhereTheProbeCameFrom) {
    auto cameras = Cameras(3);
    Responder responder(cameras, {}, m_outbox);
    Search(responder);
    ASSERT_THAT(m_network.m_sent, SizeIs(3));
    for (const auto& datagram : m_network.m_sent) {
        EXPECT_EQ(datagram.to, kSearcher);
        EXPECT_EQ(datagram.from.port, 3702);
    }
    EXPECT_EQ(m_outbox.NextDue(), std::nullopt);
    EXPECT_EQ(cameras[2].repliesSent, 1U);
}

TEST_F(SimResponder, UnicastProbeIsAnsweredByItsAddresseeAlone) {
    auto cameras = Cameras(3);
    Responder responder(cameras, {}, m_outbox);
    Search(responder, {cameras[1].ip, 3702});
    ASSERT_THAT(m_network.m_sent, SizeIs(1));
    EXPECT_EQ(m_network.m_sent[0].from.ip, cameras[1].ip);
}

TEST_F(SimResponder, DelaysLieWithinTheLimitAndDiffer) {
    auto cameras = Cameras(200);
    Responder responder(cameras, {.maxDelay = milliseconds(20)}, m_outbox);
    responder.OnDatagram({kSearcher, kGroup, ProbeText()}, kStart);
    ASSERT_TRUE(m_outbox.NextDue());
    EXPECT_GE(*m_outbox.NextDue(), kStart);
    m_outbox.SendDue(kStart + milliseconds(10), m_network);
    const auto early = m_network.m_sent.size();
    EXPECT_GT(early, 50U);
    EXPECT_LT(early, 150U);
    m_outbox.SendDue(kStart + milliseconds(20), m_network);
    EXPECT_THAT(m_network.m_sent, SizeIs(200));
}

TEST_F(SimResponder, SameSeedRepeatsTheRunAndAnotherDoesNot) {
    const auto run = [](std::uint64_t seed) {
        auto cameras = Cameras(50);
        Outbox outbox(seed, 0.2);
        Responder responder(cameras, {.seed = seed, .probeLoss = 0.2}, outbox);
        FakeNetwork network;
        responder.OnDatagram({kSearcher, kGroup, ProbeText()}, kStart);
        outbox.SendDue(kStart + milliseconds(500), network);
        std::string all;
        for (const auto& datagram : network.m_sent) {
            all += ToText(datagram.from.ip) + datagram.payload;
        }
        return all;
    };
    EXPECT_EQ(run(1), run(1));
    EXPECT_NE(run(1), run(2));
}

TEST_F(SimResponder, LossOfAHundredPerCentLosesAll) {
    auto cameras = Cameras(10);
    Responder deaf(cameras, {.probeLoss = 1}, m_outbox);
    Search(deaf);
    EXPECT_EQ(deaf.Counts().probesLost, 10U);
    Outbox lossy(1, 1);
    Responder mute(cameras, {}, lossy);
    Search(mute);
    EXPECT_EQ(lossy.Counts().lost, 10U);
    EXPECT_EQ(lossy.NextDue(), std::nullopt);
    EXPECT_THAT(m_network.m_sent, SizeIs(0));
}

TEST_F(SimResponder, FivePerCentLossLosesAboutThat) {
    auto cameras = Cameras(10000);
    Outbox lossy(1, 0.05);
    Responder responder(cameras, {}, lossy);
    Search(responder);
    lossy.SendDue(kStart + milliseconds(500), m_network);
    EXPECT_GT(lossy.Counts().lost, 400U);
    EXPECT_LT(lossy.Counts().lost, 600U);
    EXPECT_EQ(m_network.m_sent.size() + lossy.Counts().lost, 10000U);
}

TEST_F(SimResponder, FullQueueDelaysAReplyAndLosesNone) {
    auto cameras = Cameras(5);
    Responder responder(cameras, {}, m_outbox);
    m_network.m_nextResult = SendResult::TryAgain;
    Search(responder);
    EXPECT_EQ(m_outbox.Counts().repeated, 5U);
    ASSERT_TRUE(m_outbox.NextDue());
    EXPECT_GT(*m_outbox.NextDue(), kStart + milliseconds(500));
    m_network.m_nextResult = SendResult::Sent;
    m_outbox.SendDue(*m_outbox.NextDue(), m_network);
    EXPECT_THAT(m_network.m_sent, SizeIs(5));
}

TEST_F(SimResponder, FailedSendIsCountedAndNotTriedAgain) {
    auto cameras = Cameras(1);
    Responder responder(cameras, {}, m_outbox);
    m_network.m_nextResult = SendResult::Failed;
    Search(responder);
    EXPECT_EQ(m_outbox.Counts().failed, 1U);
    EXPECT_EQ(m_outbox.NextDue(), std::nullopt);
}

TEST_F(SimResponder, DuplicatesAreTheSameBytes) {
    auto cameras = Cameras(1);
    cameras[0].misbehaviours = {Misbehaviour::Duplicate};
    Responder responder(cameras, {}, m_outbox);
    Search(responder);
    ASSERT_THAT(m_network.m_sent, SizeIs(3));
    EXPECT_EQ(m_network.m_sent[0].payload, m_network.m_sent[2].payload);
}

TEST_F(SimResponder, EmptyDatagramPrecedesTheReply) {
    auto cameras = Cameras(1);
    cameras[0].misbehaviours = {Misbehaviour::EmptyDatagram};
    Responder responder(cameras, {}, m_outbox);
    Search(responder);
    ASSERT_THAT(m_network.m_sent, SizeIs(2));
    EXPECT_EQ(m_network.m_sent[0].payload, "");
    EXPECT_NE(m_network.m_sent[1].payload, "");
}

TEST_F(SimResponder, SilentCameraSeesProbesAndSaysNothing) {
    auto cameras = Cameras(1);
    cameras[0].misbehaviours = {Misbehaviour::Silent};
    Responder responder(cameras, {}, m_outbox);
    Search(responder);
    EXPECT_THAT(m_network.m_sent, SizeIs(0));
    EXPECT_EQ(cameras[0].probesSeen, 1U);
}

TEST_F(SimResponder, WhatIsNoProbeIsCountedByItsReason) {
    auto cameras = Cameras(1);
    Responder responder(cameras, {}, m_outbox);
    responder.OnDatagram({kSearcher, kGroup, "hello"}, kStart);
    responder.OnDatagram({kSearcher, kGroup, "<a/>"}, kStart);
    EXPECT_EQ(responder.Counts().datagrams, 2U);
    EXPECT_EQ(responder.Counts().probes, 0U);
    EXPECT_EQ(responder.Counts().refused.at(lansim::ProbeError::NotXml), 1U);
    EXPECT_EQ(responder.Counts().refused.at(lansim::ProbeError::NotSoap), 1U);
    EXPECT_EQ(m_outbox.NextDue(), std::nullopt);
}

}  // namespace
