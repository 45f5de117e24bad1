#include "tools/lanscout-sim/stage.h"

#include <gmock/gmock.h>

#include "tools/lanscout-sim/controlapi.h"
#include "tools/lanscout-sim/timeline.h"

using lansim::AnswerControl;
using lansim::Datagram;
using lansim::Journal;
using lansim::Outbox;
using lansim::Population;
using lansim::Responder;
using lansim::SetupError;
using lansim::Stage;
using lansim::TimePoint;
using lansim::UpnpResponder;
using nlohmann::json;
using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::ThrowsMessage;

namespace {

constexpr TimePoint kStart{};

class FakeNetwork : public lansim::Network {
public:
    int Descriptor() const override { return -1; }
    void Receive(const lansim::DatagramHandler&) override {}
    lansim::SendResult Send(const Datagram& datagram) override {
        m_sent.push_back(datagram.payload);
        return lansim::SendResult::Sent;
    }
    std::vector<std::string> m_sent;
};

Population Two() {
    lansim::PopulationRequest request;
    request.network = *lansim::ParseSubnet("10.99.0.1/16");
    request.named.resize(2);
    request.named[0].name = "Gate";
    request.named[0].maker = request.named[1].maker = "Own";
    request.named[1].name = "Yard";
    request.namedUpnp.resize(1);
    request.namedUpnp[0].name = "TV";
    return MakePopulation(request);
}

class SimStage : public ::testing::Test {
protected:
    // All that has been sent within a second.
    std::vector<std::string> Sent() {
        m_outbox.SendDue(kStart + seconds(1), m_network);
        return std::exchange(m_network.m_sent, {});
    }

    lansim::ControlAnswer Ask(const std::string& method, const std::string& path,
                              const std::string& body = "") {
        return AnswerControl({method, path, body}, m_stage, m_journal, kStart);
    }

    Population m_population = Two();
    Outbox m_outbox{1, 0};
    FakeNetwork m_network;
    Responder m_cameras{m_population.cameras, {}, m_outbox};
    UpnpResponder m_upnp{m_population.upnpDevices, {}, m_outbox};
    int m_hostChanges = 0;
    bool m_isNetworkFull = false;
    Stage m_stage{m_population, *lansim::ParseSubnet("10.99.0.1/16"), m_cameras, m_upnp, [this] {
                      if (m_isNetworkFull) {
                          throw SetupError("no room");
                      }
                      ++m_hostChanges;
                  }};
    Journal m_journal{kStart};
};

TEST_F(SimStage, CameraThatLeavesSaysByeAndAnswersNoMore) {
    m_stage.Leave("Gate", kStart);
    const auto sent = Sent();
    ASSERT_THAT(sent, SizeIs(1));
    EXPECT_THAT(sent[0], HasSubstr("discovery/Bye"));
    EXPECT_THAT(sent[0], HasSubstr(m_population.cameras[0].uuid));
    EXPECT_FALSE(m_population.cameras[0].isPresent);
    EXPECT_EQ(m_hostChanges, 1);
    EXPECT_THAT([&] { m_stage.Leave("Gate", kStart); },
                ThrowsMessage<SetupError>(HasSubstr("\"Gate\" is gone already")));
}

TEST_F(SimStage, CameraThatJoinsSaysHelloWithANewInstance) {
    m_stage.Leave("Gate", kStart);
    Sent();
    m_stage.Join("Gate", kStart);
    const auto sent = Sent();
    ASSERT_THAT(sent, SizeIs(1));
    EXPECT_THAT(sent[0], HasSubstr("discovery/Hello"));
    EXPECT_EQ(m_population.cameras[0].instanceId, 2U);
}

TEST_F(SimStage, UpnpDeviceSaysByebyeAndAlive) {
    m_stage.Leave("TV", kStart);
    EXPECT_THAT(Sent(), ::testing::Each(HasSubstr("ssdp:byebye")));
    m_stage.Join("TV", kStart);
    const auto sent = Sent();
    EXPECT_THAT(sent, SizeIs(9));
    EXPECT_THAT(sent, ::testing::Each(HasSubstr("ssdp:alive")));
}

TEST_F(SimStage, JoinThatTheNetworkRefusesChangesNothing) {
    m_stage.Leave("Gate", kStart);
    Sent();
    m_isNetworkFull = true;
    EXPECT_THAT([&] { m_stage.Join("Gate", kStart); }, ThrowsMessage<SetupError>("no room"));
    EXPECT_FALSE(m_population.cameras[0].isPresent);
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(SimStage, DeviceIsToldByUuidEndpointNameAndAddress) {
    const auto& camera = m_population.cameras[1];
    for (const auto& name :
         {camera.uuid, "urn:uuid:" + camera.uuid, camera.name, ToText(camera.ip)}) {
        EXPECT_EQ(m_stage.TruthAbout(name)["uuid"], camera.uuid) << name;
    }
    EXPECT_THROW(m_stage.TruthAbout("nobody"), lansim::UnknownDevice);
}

TEST_F(SimStage, RenamedCameraSaysHelloWithTheNextMetadataVersion) {
    const auto truth = m_stage.Change("Gate", {{"name", "Door"}}, kStart);
    EXPECT_EQ(truth["name"], "Door");
    EXPECT_EQ(truth["metadataVersion"], 2);
    const auto sent = Sent();
    ASSERT_THAT(sent, SizeIs(1));
    EXPECT_THAT(sent[0], HasSubstr("/name/Door"));
}

TEST_F(SimStage, MovedCameraSaysByeThereAndHelloHere) {
    m_stage.Change("Gate", {{"ip", "10.99.7.7"}}, kStart);
    const auto sent = Sent();
    ASSERT_THAT(sent, SizeIs(2));
    EXPECT_THAT(sent[0], HasSubstr("discovery/Bye"));
    EXPECT_THAT(sent[1], HasSubstr("http://10.99.7.7"));
}

TEST_F(SimStage, MutedCameraSaysNothingOfIt) {
    m_stage.Change("Gate", {{"muted", true}}, kStart);
    EXPECT_THAT(Sent(), IsEmpty());
    EXPECT_TRUE(m_population.cameras[0].isMuted);
}

TEST_F(SimStage, WrongChangeIsNamedAndChangesNothing) {
    const auto before = m_stage.Truth();
    const std::string other = lansim::ToText(m_population.cameras[1].mac);
    const std::pair<json, const char*> mistakes[] = {
        {{{"port", 0}}, "device: port: 0 is not 1 to 65535"},
        {{{"nmae", "x"}}, "device: nmae: not known here"},
        {{{"name", "Door"}, {"ip", "10.98.0.1"}}, "ip: 10.98.0.1 is no host of"},
        {{{"ip", "10.99.0.1"}}, "ip: 10.99.0.1 is no host of"},
        {{{"mac", other}}, "is another device's"},
        {json::array(), "is no object"},
    };
    for (const auto& mistake : mistakes) {
        EXPECT_THAT([&] { m_stage.Change("Gate", mistake.first, kStart); },
                    ThrowsMessage<SetupError>(HasSubstr(mistake.second)));
    }
    EXPECT_TRUE(m_stage.Truth() == before);
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(SimStage, AddedDeviceGetsWhatItLeavesOpenAndSaysHello) {
    const auto truth = m_stage.Add({{"name", "New"}}, kStart);
    EXPECT_EQ(m_population.cameras.size(), 3U);
    EXPECT_NE(truth["uuid"], "");
    EXPECT_NE(truth["ip"], m_stage.TruthAbout("Gate")["ip"]);
    EXPECT_THAT(Sent(), ::testing::ElementsAre(HasSubstr("discovery/Hello")));
    EXPECT_EQ(m_stage.Add({{"kind", "upnp"}, {"name", "Radio"}}, kStart)["port"], 49152);
    EXPECT_THAT(Sent(), SizeIs(9));
}

TEST_F(SimStage, WrongDeviceIsNamedAndNotAdded) {
    for (const auto& mistake : std::vector<std::pair<json, const char*>>{
             {{{"ip", lansim::ToText(m_population.cameras[0].ip)}}, "is another device's"},
             {{{"kind", "fax"}}, "device: kind: \"fax\" is neither"},
             {{{"uuid", "a b"}}, "device: uuid"}}) {
        EXPECT_THAT([&] { m_stage.Add(mistake.first, kStart); },
                    ThrowsMessage<SetupError>(HasSubstr(mistake.second)));
    }
    EXPECT_EQ(m_population.cameras.size(), 2U);
}

TEST_F(SimStage, TimelineIsPlayedInTheOrderOfItsTimes) {
    const auto event = [](const char* text) {
        const json object = json::parse(text);
        lansim::JsonReader reader(object, "timeline[0]");
        return lansim::ReadTimelineEvent(reader);
    };
    lansim::Timeline timeline({event(R"({"at": 2, "device": "Gate", "do": "join"})"),
                               event(R"({"at": 1.5, "device": "Gate", "do": "leave"})"),
                               event(R"({"at": 1.6, "device": "nobody", "do": "leave"})"),
                               event(R"({"at": 3, "device": "Yard", "do": "move",
                                         "ip": "10.99.8.8"})"),
                               event(R"({"at": 3, "device": "TV", "do": "rename", "name": "X"})"),
                               event(R"({"at": 3, "device": "X", "do": "mute"})")},
                              kStart);
    EXPECT_EQ(timeline.NextDue(), kStart + milliseconds(1500));
    timeline.Run(m_stage, kStart + milliseconds(1499));
    EXPECT_TRUE(m_population.cameras[0].isPresent);
    timeline.Run(m_stage, kStart + milliseconds(1999));
    EXPECT_FALSE(m_population.cameras[0].isPresent);
    timeline.Run(m_stage, kStart + seconds(5));
    EXPECT_TRUE(m_population.cameras[0].isPresent);
    EXPECT_EQ(lansim::ToText(m_population.cameras[1].ip), "10.99.8.8");
    EXPECT_EQ(m_population.upnpDevices[0].name, "X");
    EXPECT_TRUE(m_population.upnpDevices[0].isMuted);
    EXPECT_EQ(timeline.NextDue(), std::nullopt);
}

TEST(SimTimeline, MistakesAreNamed) {
    const std::pair<const char*, const char*> mistakes[] = {
        {R"({})", "timeline[0]: must have"},
        {R"({"at": -1, "device": "a", "do": "leave"})", "timeline[0].at: -1 is not 0"},
        {R"({"at": "1", "device": "a", "do": "leave"})", "timeline[0].at: \"1\" is no number"},
        {R"({"at": 1, "device": "a", "do": "jump"})", "timeline[0].do: \"jump\" is not join"},
        {R"({"at": 1, "device": "a", "do": "move"})", "timeline[0].ip: \"\" is not the IPv4"},
        {R"({"at": 1, "device": "a", "do": "rename"})", "timeline[0].name: is missing"},
        {R"({"at": 1, "device": "a", "do": "leave", "x": 1})", "timeline[0].x: not known"},
    };
    for (const auto& [text, complaint] : mistakes) {
        const json object = json::parse(text);
        EXPECT_THAT(
            [&] {
                lansim::JsonReader reader(object, "timeline[0]");
                lansim::ReadTimelineEvent(reader);
            },
            ThrowsMessage<SetupError>(HasSubstr(complaint)));
    }
}

TEST_F(SimStage, RequestsAreAnsweredWithTheirStatus) {
    EXPECT_EQ(Ask("GET", "/devices").status, 200U);
    EXPECT_THAT(json::parse(Ask("GET", "/devices").json)["devices"], SizeIs(3));
    EXPECT_EQ(Ask("POST", "/devices", R"({"name": "New"})").status, 201U);
    EXPECT_EQ(Ask("PATCH", "/devices/New", R"({"muted": true})").status, 200U);
    EXPECT_EQ(Ask("GET", "/devices/New").status, 200U);
    EXPECT_EQ(Ask("DELETE", "/devices/New").status, 204U);
    EXPECT_EQ(Ask("PATCH", "/devices/New", R"({"present": true})").status, 200U);
    EXPECT_EQ(Ask("POST", "/announce", R"({"device": "Gate", "do": "bye"})").status, 200U);
    EXPECT_EQ(Ask("GET", "/devices/nobody").status, 404U);
    EXPECT_EQ(Ask("GET", "/else").status, 404U);
    EXPECT_EQ(Ask("PUT", "/devices").status, 405U);
    EXPECT_EQ(Ask("POST", "/devices/Gate").status, 405U);
    EXPECT_EQ(Ask("POST", "/probes").status, 405U);
    EXPECT_EQ(Ask("POST", "/devices", "{").status, 400U);
    EXPECT_EQ(Ask("POST", "/devices", "").status, 400U);
    EXPECT_EQ(Ask("POST", "/devices", std::string(100000, '[')).status, 400U);
    EXPECT_EQ(Ask("POST", "/announce", R"({"device": "Gate", "do": "jump"})").status, 400U);
}

TEST_F(SimStage, MistakeInARequestIsNamedInTheAnswer) {
    EXPECT_EQ(json::parse(Ask("PATCH", "/devices/Gate", R"({"port": 70000})").json)["error"],
              "device: port: 70000 is not 1 to 65535");
}

TEST_F(SimStage, ProbesAreListedWithWhatBecameOfThem) {
    const Datagram wrong{
        {lansim::Ipv4{0x0A630001}, 5000}, {lansim::kMulticastGroup, 3702}, "hello"};
    m_journal.Add(wrong, m_cameras.OnDatagram(wrong, kStart), kStart + seconds(2));
    const auto probes = json::parse(Ask("GET", "/probes").json)["probes"];
    ASSERT_THAT(probes, SizeIs(1));
    EXPECT_EQ(probes[0]["refused"], "notXml");
    EXPECT_EQ(probes[0]["from"], "10.99.0.1:5000");
    EXPECT_EQ(probes[0]["at"], 2.0);
    for (int i = 0; i < 2000; ++i) {
        m_journal.Add(wrong, lansim::ProbeOutcome{}, kStart);
    }
    EXPECT_THAT(m_journal.Entries(), SizeIs(1000));
}

}  // namespace
