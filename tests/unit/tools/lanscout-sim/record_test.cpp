#include "tools/lanscout-sim/record.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>

#include "tools/lanscout-sim/base/setuperror.h"
#include "tools/lanscout-sim/network/capture.h"
#include "tools/lanscout-sim/network/frames.h"
#include "tools/lanscout-sim/onvif/reply.h"
#include "tools/lanscout-sim/scenario.h"

using lansim::BuildReply;
using lansim::Camera;
using lansim::Ipv4;
using lansim::Mac;
using lansim::Probe;
using lansim::RecordReply;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::ThrowsMessage;

namespace {

constexpr Mac kMac{0x02, 0x4C, 0x0A, 0x63, 0x00, 0x0A};
constexpr Mac kSearcherMac{0x02, 0, 0, 0, 0, 1};
constexpr Ipv4 kSearcher{0x0A630001};

Camera Gate(unsigned shape) {
    Camera camera;
    camera.name = "Main Gate";
    camera.hardware = "VQ 4";
    camera.location = "Yard";
    camera.uuid = "11111111-2222-4333-8444-555555555555";
    camera.ip = *lansim::ParseIpv4("10.99.0.10");
    camera.port = 8080;
    camera.shape = shape;
    return camera;
}

Probe Asking(const std::string& id) {
    Probe probe;
    probe.messageId = id;
    return probe;
}

// Recording one's own reply and saying it again must give the same bytes, in every handwriting.
TEST(SimRecord, RecordedReplyIsSaidAgainByteForByte) {
    for (unsigned shape = 0; shape < lansim::ShapeCount(); ++shape) {
        const Camera camera = Gate(shape);
        const lansim::ReplyIds ids{"urn:uuid:m", 7, 9};
        const std::string said = BuildReply(camera, Asking("urn:uuid:first"), ids);
        const auto device = RecordReply(said, camera.ip, kMac);
        ASSERT_FALSE(device.is_null()) << shape;
        const auto scenario =
            lansim::ParseScenario(nlohmann::json{{"devices", {device}}}.dump(), "recorded.json");
        EXPECT_EQ(BuildReply(scenario.cameras.at(0), Asking("urn:uuid:second"), ids),
                  BuildReply(camera, Asking("urn:uuid:second"), ids))
            << shape;
    }
}

TEST(SimRecord, TruthIsReadOutOfTheReply) {
    const auto device =
        RecordReply(BuildReply(Gate(2), Asking("urn:x"), {"urn:uuid:m", 7, 9}), Gate(2).ip, kMac);
    EXPECT_EQ(device["name"], "Main Gate");
    EXPECT_EQ(device["hardware"], "VQ 4");
    EXPECT_EQ(device["location"], "Yard");
    EXPECT_EQ(device["ip"], "10.99.0.10");
    EXPECT_EQ(device["mac"], "02:4C:0A:63:00:0A");
    EXPECT_EQ(device["port"], 8080);
    EXPECT_EQ(device["uuid"], "11111111-2222-4333-8444-555555555555");
    EXPECT_EQ(device["types"], nlohmann::json({"NetworkVideoTransmitter", "Device"}));
}

TEST(SimRecord, AddressIsReplacedWhereItStandsAloneOnly) {
    Camera camera = Gate(0);
    camera.scopes = {"onvif://www.onvif.org/name/10.99.0.100", "onvif://a/110.99.0.10"};
    const std::string reply = RecordReply(BuildReply(camera, Asking("urn:x"), {"urn:uuid:m", 7, 9}),
                                          camera.ip, kMac)["reply"];
    EXPECT_THAT(reply, HasSubstr("http://@IP@:8080/"));
    EXPECT_THAT(reply, HasSubstr("name/10.99.0.100"));
    EXPECT_THAT(reply, HasSubstr("a/110.99.0.10"));
    EXPECT_THAT(reply, HasSubstr(">@RELATES@<"));
    EXPECT_THAT(reply, Not(HasSubstr("11111111-2222")));
}

TEST(SimRecord, WhatIsNoReplyIsNone) {
    EXPECT_TRUE(RecordReply("", kSearcher, kMac).is_null());
    EXPECT_TRUE(RecordReply("hello", kSearcher, kMac).is_null());
    EXPECT_TRUE(RecordReply("<a/>", kSearcher, kMac).is_null());
    EXPECT_TRUE(RecordReply(BuildHello(Gate(0), {"urn:uuid:m", 7, 9}), kSearcher, kMac).is_null());
}

TEST(SimRecord, CaptureGivesEachDeviceOnceAlsoFromFragments) {
    const std::string file = "sim_record_test." + std::to_string(getpid());
    {
        lansim::Capture capture(file);
        Camera longOne = Gate(1);
        longOne.ip = *lansim::ParseIpv4("10.99.0.11");
        longOne.uuid = "22222222-2222-4333-8444-555555555555";
        longOne.misbehaviours = {lansim::Misbehaviour::Oversize};
        std::uint16_t id = 0;
        for (const auto& camera : {Gate(0), longOne, Gate(0)}) {
            const std::string said = BuildReply(camera, Asking("urn:x"), {"urn:uuid:m", 7, 9});
            for (const auto& frame :
                 lansim::UdpFrames(kMac, kSearcherMac,
                                   {{camera.ip, 3702}, {kSearcher, 5000}, said, {}, {}}, ++id)) {
                capture.Write(frame);
            }
        }
        capture.Write("no frame at all");
    }
    const auto scenario = lansim::RecordScenario(file);
    std::filesystem::remove(file);
    EXPECT_THAT(scenario["devices"], SizeIs(2));
    EXPECT_EQ(scenario["devices"][0]["mac"], "02:4C:0A:63:00:0A");
    EXPECT_FALSE(scenario["devices"][1].contains("mac")) << "a MAC address has one owner";
    EXPECT_THAT(lansim::ParseScenario(scenario.dump(), "x").cameras, SizeIs(2));
}

TEST(SimRecord, FileThatIsNoCaptureIsNamed) {
    EXPECT_THAT([] { lansim::RecordScenario("/nowhere/x.pcap"); },
                ThrowsMessage<lansim::SetupError>(HasSubstr("/nowhere/x.pcap")));
}

}  // namespace
