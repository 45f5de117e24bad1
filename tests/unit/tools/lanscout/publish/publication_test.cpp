#include "tools/lanscout/publish/publication.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "finder/broker/topics.h"

using namespace Lanscout;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr char kMac[] = "00:1B:FF:01:02:03";
constexpr char kSeen[] = "2026-11-21T08:00:00Z";

ListedDevice Camera(const std::string& ip, const std::string& mac = kMac,
                    const std::string& uuid = "") {
    ListedDevice listed;
    listed.device.ip = ip;
    listed.device.mac = mac;
    listed.device.uuid = uuid;
    listed.lastSeen = kSeen;
    return listed;
}

using Sent = std::map<std::string, std::string>;

Sent ByTopic(const std::vector<Letter>& letters) {
    Sent sent;
    for (const Letter& letter : letters) {
        EXPECT_TRUE(letter.retain) << letter.topic;
        EXPECT_TRUE(sent.emplace(letter.topic, letter.payload).second) << letter.topic;
    }
    return sent;
}

class Site : public testing::Test {
protected:
    explicit Site(bool homeAssistant = false) : m_publication(Settings(homeAssistant)) {}

    static SiteSettings Settings(bool homeAssistant) {
        SiteSettings settings;
        settings.name = "berlin";
        settings.homeAssistant = homeAssistant;
        settings.interval = std::chrono::seconds(60);
        return settings;
    }

    Sent Update(const std::vector<ListedDevice>& list) {
        return ByTopic(m_publication.Update({}, list));
    }

    Publication m_publication;
};

constexpr char kTopic[] = "lanscout/berlin/device/001bff010203";

TEST_F(Site, FirstRoundTellsEverything) {
    const Sent sent = Update({Camera("10.0.0.1")});
    ASSERT_EQ(sent.size(), 3U);
    const Json device = Json::parse(sent.at(kTopic));
    EXPECT_EQ(device["ip"], "10.0.0.1");
    EXPECT_EQ(device["state"], "present");
    EXPECT_EQ(device["lastSeen"], kSeen);
    EXPECT_EQ(device["site"], "berlin");
    const Json info = Json::parse(sent.at("lanscout/berlin/info"));
    EXPECT_EQ(info["interval"], 60);
    const Json round = Json::parse(sent.at("lanscout/berlin/round"));
    EXPECT_EQ(round["present"], 1);
    EXPECT_EQ(round["gone"], 0);
    EXPECT_FALSE(round.contains("devices"));
}

TEST_F(Site, RoundIsTheLastLetter) {
    EXPECT_EQ(m_publication.Update({}, std::vector{Camera("10.0.0.1")}).back().topic,
              "lanscout/berlin/round");
}

TEST_F(Site, OnlyTheRoundIsToldWhereNothingHasChanged) {
    Update({Camera("10.0.0.1")});
    ListedDevice later = Camera("10.0.0.1");
    later.lastSeen = "2026-11-21T09:00:00Z";
    const Sent sent = Update({later});
    EXPECT_EQ(sent.size(), 1U);
    EXPECT_TRUE(sent.contains("lanscout/berlin/round"));
}

TEST_F(Site, CameraThatMovesKeepsItsTopic) {
    Update({Camera("10.0.0.1")});
    const Sent sent = Update({Camera("10.0.0.9")});
    ASSERT_EQ(sent.size(), 2U);
    EXPECT_EQ(Json::parse(sent.at(kTopic))["ip"], "10.0.0.9");
}

TEST_F(Site, GoneCameraIsKeptAsGoneAndTellsWhenItWasSeen) {
    Update({Camera("10.0.0.1")});
    ListedDevice gone = Camera("10.0.0.1");
    gone.gone = true;
    const Sent sent = Update({gone});
    EXPECT_EQ(Json::parse(sent.at(kTopic))["state"], "gone");
    EXPECT_EQ(Json::parse(sent.at(kTopic))["lastSeen"], kSeen);
    EXPECT_EQ(Json::parse(sent.at("lanscout/berlin/round"))["gone"], 1);
}

TEST_F(Site, ForgottenCameraLeavesAnEmptyTopic) {
    Update({Camera("10.0.0.1")});
    EXPECT_EQ(Update({}).at(kTopic), "");
    EXPECT_FALSE(Update({}).contains(kTopic)) << "once";
}

TEST_F(Site, CameraWhoseMacAddressBecomesKnownLeavesNoSecondTopic) {
    Update({Camera("10.0.0.1", "", "urn:uuid:AB")});
    const Sent sent = Update({Camera("10.0.0.1", kMac, "urn:uuid:AB")});
    EXPECT_EQ(sent.at("lanscout/berlin/device/ab"), "");
    EXPECT_NE(sent.at(kTopic), "");
}

TEST_F(Site, AllHasWhatIsKept) {
    Update({Camera("10.0.0.1"), Camera("10.0.0.2", "00:1B:FF:01:02:04")});
    Update({Camera("10.0.0.7")});
    const Sent all = ByTopic(m_publication.All());
    EXPECT_EQ(all.size(), 3U);
    EXPECT_THAT(all.at(kTopic), HasSubstr("10.0.0.7"));
}

TEST_F(Site, EventIsALineOfItsDevice) {
    DeviceEvent event;
    event.what = DeviceEvent::What::Gone;
    event.device = Camera("10.0.0.1").device;
    const Letter letter = m_publication.Event(event);
    EXPECT_EQ(letter.topic, "lanscout/berlin/event");
    EXPECT_FALSE(letter.retain);
    EXPECT_EQ(Json::parse(letter.payload)["event"], "gone");
    EXPECT_EQ(Json::parse(letter.payload)["device"]["site"], "berlin");
    event.device = Camera("10.0.0.1", "00:1B:FF:01:02:04").device;
    EXPECT_NE(m_publication.Event(event).subject, letter.subject);
}

TEST_F(Site, WithoutHomeAssistantNothingIsToldToIt) {
    for (const auto& [topic, payload] : Update({Camera("10.0.0.1")})) {
        EXPECT_TRUE(topic.starts_with("lanscout/")) << topic;
    }
}

TEST(DeviceIds, AreMacAddressElseIdElseIpAddress) {
    const std::vector<ListedDevice> list{Camera("10.0.0.1", kMac, "urn:uuid:AB"),
                                         Camera("10.0.0.2", "", "urn:uuid:CD"),
                                         Camera("10.0.0.3", "")};
    EXPECT_THAT(DeviceIds(list), ElementsAre("001bff010203", "cd", "10.0.0.3"));
}

TEST(DeviceIds, DevicesThatShareAMacAddressAreToldApart) {
    const std::vector<ListedDevice> list{Camera("10.0.0.1", kMac, "urn:uuid:AB"),
                                         Camera("10.0.0.2", kMac), Camera("10.0.0.3", "")};
    EXPECT_THAT(DeviceIds(list),
                ElementsAre("001bff010203-ab", "001bff010203-10.0.0.2", "10.0.0.3"));
}

TEST(DeviceIds, AreAllDifferentEvenWhereNothingTellsDevicesApart) {
    const std::vector<ListedDevice> list(5, Camera("10.0.0.1"));
    const std::vector<std::string> ids = DeviceIds(list);
    EXPECT_EQ(std::set(ids.begin(), ids.end()).size(), 5U);
    for (const std::string& id : ids) {
        EXPECT_TRUE(IsDeviceId(id)) << id;
    }
}

TEST(DeviceIds, HostileIdsBecomeSafe) {
    const std::vector<std::string> ids =
        DeviceIds(std::vector{Camera("10.0.0.1", "", "a/+/#\x1b"), Camera("fe80::1%eth0", "")});
    for (const std::string& id : ids) {
        EXPECT_TRUE(IsDeviceId(id)) << id;
    }
}

class HomeAssistant : public Site {
protected:
    HomeAssistant() : Site(true) {}
};

TEST_F(HomeAssistant, IsToldOfEachDevice) {
    const Sent sent = Update({Camera("10.0.0.1")});
    const Json config =
        Json::parse(sent.at("homeassistant/binary_sensor/lanscout_001bff010203/config"));
    EXPECT_EQ(config["state_topic"], kTopic);
    EXPECT_EQ(config["availability_topic"], "lanscout/berlin/status");
    EXPECT_EQ(config["device_class"], "connectivity");
    EXPECT_EQ(config["device"]["connections"], Json::parse(R"([["mac","00:1B:FF:01:02:03"]])"));
}

TEST_F(HomeAssistant, TwoSitesDevicesWithoutMacAddressesHaveTheirOwnTopics) {
    const Sent sent = Update({Camera("10.0.0.1", "")});
    EXPECT_TRUE(sent.contains("homeassistant/binary_sensor/lanscout_berlin-10_0_0_1/config"));
}

TEST_F(HomeAssistant, ForgetsWhatIsForgotten) {
    Update({Camera("10.0.0.1")});
    EXPECT_EQ(Update({}).at("homeassistant/binary_sensor/lanscout_001bff010203/config"), "");
}

}  // namespace
