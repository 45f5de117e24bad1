#include "tools/lanscout-sim/onvif/responder.h"

#include <gmock/gmock.h>

#include <set>

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

// A Probe or a Resolve, by what stands in its Body.
std::string Message(const std::string& name, const std::string& id, const std::string& content,
                    const std::string& to = std::string(lansim::kDiscoveryTo)) {
    return R"(<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope")"
           R"( xmlns:w="http://schemas.xmlsoap.org/ws/2004/08/addressing"><s:Header>)"
           R"(<w:Action>http://schemas.xmlsoap.org/ws/2005/04/discovery/)" +
           name + "</w:Action><w:To>" + to + "</w:To><w:MessageID>" + id +
           R"(</w:MessageID></s:Header><s:Body>)"
           R"(<p:)" +
           name + R"( xmlns:p="http://schemas.xmlsoap.org/ws/2005/04/discovery">)" + content +
           "</p:" + name + "></s:Body></s:Envelope>";
}

std::string ProbeText(const std::string& id = "uuid:1") {
    return Message("Probe", id, "");
}

std::deque<Camera> Cameras(std::size_t count) {
    std::deque<Camera> cameras(count);
    for (std::size_t i = 0; i < count; ++i) {
        cameras[i].ip = Ipv4{0x0A63000A + static_cast<std::uint32_t>(i)};
        cameras[i].uuid = "camera-" + std::to_string(i);
    }
    return cameras;
}

class SimResponder : public ::testing::Test {
protected:
    // Asks once and sends all that is due within the longest delay.
    void Search(Responder& responder, Endpoint to = kGroup) {
        responder.OnDatagram({kSearcher, to, ProbeText()}, kStart);
        m_outbox.SendDue(kStart + milliseconds(1000), m_network);
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

TEST_F(SimResponder, Ipv6ProbeIsAnsweredFromTheIpv6Address) {
    const lansim::IpAddress searcher(*lansim::ParseIpv6("fe80::1"));
    auto cameras = Cameras(3);
    cameras[1].ipv6 = lansim::ParseIpv6("fe80::2");
    cameras[2].ipv6 = lansim::ParseIpv6("fe80::3");
    cameras[2].hasIpv4 = false;
    Responder responder(cameras, ResponderOptions{}, m_outbox);
    responder.OnDatagram({{searcher, 5000}, {lansim::kMulticastGroup6, 3702}, ProbeText()}, kStart);
    m_outbox.SendDue(kStart + std::chrono::seconds(1), m_network);
    ASSERT_THAT(m_network.m_sent, SizeIs(2));
    for (const auto& sent : m_network.m_sent) {
        EXPECT_TRUE(sent.from.ip == *cameras[1].ipv6 || sent.from.ip == *cameras[2].ipv6);
        EXPECT_EQ(sent.to, (Endpoint{searcher, 5000}));
    }
    EXPECT_EQ(cameras[0].probesSeen, 0U);
}

TEST_F(SimResponder, CameraWithoutIpv4IsDeafToIt) {
    auto cameras = Cameras(2);
    cameras[1].ipv6 = lansim::ParseIpv6("fe80::3");
    cameras[1].hasIpv4 = false;
    Responder responder(cameras, ResponderOptions{}, m_outbox);
    Search(responder);
    ASSERT_THAT(m_network.m_sent, SizeIs(1));
    EXPECT_EQ(m_network.m_sent[0].from.ip, cameras[0].ip);
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
    EXPECT_GT(*m_outbox.NextDue(), kStart + milliseconds(1000));
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

TEST_F(SimResponder, DuplicatesComeFiftyToTwoHundredAndFiftyMillisecondsApart) {
    auto cameras = Cameras(40);
    for (auto& camera : cameras) {
        camera.misbehaviours = {Misbehaviour::Duplicate};
        camera.delay = milliseconds(7);
    }
    Responder responder(cameras, {}, m_outbox);
    responder.OnDatagram({kSearcher, kGroup, ProbeText()}, kStart);
    const auto sentBy = [&](int time) {
        m_outbox.SendDue(kStart + milliseconds(time), m_network);
        return m_network.m_sent.size();
    };
    EXPECT_EQ(sentBy(6), 0U);
    EXPECT_EQ(sentBy(7), 40U);
    EXPECT_EQ(sentBy(56), 40U);
    EXPECT_GT(sentBy(150), 45U);
    EXPECT_LT(sentBy(150), 80U);
    EXPECT_GE(sentBy(257), 80U);
    EXPECT_LT(sentBy(257), 115U);
    EXPECT_EQ(sentBy(507), 120U);
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

TEST_F(SimResponder, RepeatedMessageIdIsAnsweredOnceAndByALenientDeviceAgain) {
    auto cameras = Cameras(3);
    Responder strict(cameras, {}, m_outbox);
    Search(strict);
    Search(strict);
    EXPECT_THAT(m_network.m_sent, SizeIs(3));
    EXPECT_EQ(strict.Counts().refused.at(lansim::ProbeError::Repeated), 1U);
    EXPECT_EQ(strict.Counts().probes, 2U);
    Responder lenient(cameras, {.strictness = lansim::Strictness::Lenient}, m_outbox);
    Search(lenient);
    Search(lenient);
    EXPECT_THAT(m_network.m_sent, SizeIs(9));
}

TEST_F(SimResponder, CameraThatLostTheFirstCopyAnswersTheSecond) {
    auto cameras = Cameras(400);
    Responder responder(cameras, {.probeLoss = 0.5}, m_outbox);
    Search(responder);
    const auto first = m_network.m_sent.size();
    EXPECT_GT(first, 100U);
    Search(responder);
    EXPECT_GT(m_network.m_sent.size(), first + 50);
    std::set<lansim::IpAddress> answered;
    for (const auto& datagram : m_network.m_sent) {
        EXPECT_TRUE(answered.insert(datagram.from.ip).second);
    }
}

TEST_F(SimResponder, MessageIdIsForgottenAfterAMinute) {
    auto cameras = Cameras(1);
    Responder responder(cameras, {}, m_outbox);
    const Datagram probe{kSearcher, kGroup, ProbeText()};
    EXPECT_EQ(responder.OnDatagram(probe, kStart).answers, 1U);
    EXPECT_EQ(responder.OnDatagram(probe, kStart + std::chrono::seconds(60)).answers, 0U);
    EXPECT_EQ(responder.OnDatagram(probe, kStart + std::chrono::seconds(61)).answers, 1U);
}

TEST_F(SimResponder, MulticastProbeMustGoToTheDiscoveryUrn) {
    auto cameras = Cameras(1);
    Responder responder(cameras, {}, m_outbox);
    const auto outcome = responder.OnDatagram(
        {kSearcher, kGroup, Message("Probe", "uuid:1", "", "urn:uuid:camera-0")}, kStart);
    EXPECT_EQ(outcome.refused, lansim::ProbeError::WrongTo);
    EXPECT_EQ(responder.Counts().refused.at(lansim::ProbeError::WrongTo), 1U);
    EXPECT_EQ(m_outbox.NextDue(), std::nullopt);
}

TEST_F(SimResponder, UnicastProbeMayNameTheDeviceAndNoOther) {
    auto cameras = Cameras(2);
    Responder responder(cameras, {}, m_outbox);
    const auto ask = [&](const std::string& id, const std::string& to) {
        return responder
            .OnDatagram({kSearcher, {cameras[0].ip, 3702}, Message("Probe", id, "", to)}, kStart)
            .answers;
    };
    EXPECT_EQ(ask("uuid:1", "urn:uuid:camera-0"), 1U);
    EXPECT_EQ(ask("uuid:2", "http://10.99.0.10/onvif/device_service"), 1U);
    EXPECT_EQ(ask("uuid:3", std::string(lansim::kDiscoveryTo)), 1U);
    EXPECT_EQ(ask("uuid:4", "urn:uuid:camera-1"), 0U);
    EXPECT_EQ(responder.Counts().refused.at(lansim::ProbeError::WrongTo), 1U);
}

TEST_F(SimResponder, ResolveIsAnsweredByTheDeviceItAsksFor) {
    auto cameras = Cameras(3);
    Responder responder(cameras, {}, m_outbox);
    responder.OnDatagram({kSearcher, kGroup,
                          Message("Resolve", "uuid:1",
                                  "<w:EndpointReference><w:Address>urn:uuid:camera-1</w:Address>"
                                  "</w:EndpointReference>")},
                         kStart);
    m_outbox.SendDue(kStart + milliseconds(500), m_network);
    ASSERT_THAT(m_network.m_sent, SizeIs(1));
    EXPECT_EQ(m_network.m_sent[0].from.ip, cameras[1].ip);
    EXPECT_THAT(m_network.m_sent[0].payload, ::testing::HasSubstr("ResolveMatches"));
    EXPECT_THAT(m_network.m_sent[0].payload, ::testing::Not(::testing::HasSubstr("ProbeMatch")));
    EXPECT_EQ(responder.Counts().resolves, 1U);
    EXPECT_EQ(responder.Counts().probes, 0U);
}

// Another Probe in between, and other ids: what a camera draws for the same question stays.
TEST_F(SimResponder, DrawsDependOnTheQuestionAndNotOnWhatCameBefore) {
    const auto run = [](bool isDisturbed) {
        auto cameras = Cameras(50);
        Outbox outbox(1, 0.2);
        Responder responder(cameras, {.probeLoss = 0.2}, outbox);
        if (isDisturbed) {
            responder.OnDatagram(
                {kSearcher, kGroup,
                 Message("Probe", "uuid:0", "<p:Scopes>onvif://nowhere</p:Scopes>")},
                kStart);
        }
        FakeNetwork network;
        responder.OnDatagram({kSearcher, kGroup, ProbeText(isDisturbed ? "uuid:7" : "uuid:8")},
                             kStart);
        std::string all;
        for (int time = 0; time <= 500; time += 5) {
            outbox.SendDue(kStart + milliseconds(time), network);
            all += " " + std::to_string(network.m_sent.size());
        }
        for (const auto& datagram : network.m_sent) {
            all += ToText(datagram.from.ip) + " ";
        }
        return all;
    };
    EXPECT_EQ(run(false), run(true));
}

TEST_F(SimResponder, SecondProbeOfAKindHasLossesOfItsOwn) {
    auto cameras = Cameras(100);
    Responder responder(cameras, {.probeLoss = 0.5}, m_outbox);
    std::vector<std::vector<std::uint64_t>> seen(2);
    for (int i = 0; i < 2; ++i) {
        responder.OnDatagram({kSearcher, kGroup, ProbeText("uuid:" + std::to_string(i))}, kStart);
        for (const auto& camera : cameras) {
            seen[static_cast<std::size_t>(i)].push_back(camera.probesSeen);
        }
    }
    for (std::size_t i = 0; i < cameras.size(); ++i) {
        seen[1][i] -= seen[0][i];
    }
    EXPECT_NE(seen[0], seen[1]);
}

TEST_F(SimResponder, EmptyAloneIsAnEmptyDatagramAndNothingElse) {
    auto cameras = Cameras(1);
    cameras[0].misbehaviours = {Misbehaviour::EmptyAlone};
    Responder responder(cameras, {}, m_outbox);
    Search(responder);
    ASSERT_THAT(m_network.m_sent, SizeIs(1));
    EXPECT_EQ(m_network.m_sent[0].payload, "");
}

TEST_F(SimResponder, ZeroLengthStormPrecedesTheReply) {
    auto cameras = Cameras(1);
    cameras[0].misbehaviours = {Misbehaviour::ZeroLength};
    Responder responder(cameras, {}, m_outbox);
    Search(responder);
    ASSERT_THAT(m_network.m_sent, SizeIs(51));
    EXPECT_EQ(m_network.m_sent[49].payload, "");
    EXPECT_NE(m_network.m_sent[50].payload, "");
}

TEST_F(SimResponder, DevicesAtOneAddressAllAnswerAUnicastProbe) {
    auto cameras = Cameras(2);
    cameras[1].ip = cameras[0].ip;
    Responder responder(cameras, {}, m_outbox);
    Search(responder, {cameras[0].ip, 3702});
    EXPECT_THAT(m_network.m_sent, SizeIs(2));
}

}  // namespace
