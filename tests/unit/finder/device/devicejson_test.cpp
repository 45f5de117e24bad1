#include "finder/device/devicejson.h"

#include <gtest/gtest.h>

using namespace Lanscout;

namespace {

Device Full() {
    Device device;
    device.ip = "192.168.1.20";
    device.otherIps = {"10.0.0.20"};
    device.port = 8080;
    device.protocols = {true, true};
    device.kind = Kind::Camera;
    device.hardware = "IPC";
    device.mac = "00:1B:FF:01:02:03";
    device.macMaker = "Chips";
    device.name = "Gate";
    device.maker = "Cameras";
    device.model = "C1";
    device.page = "http://192.168.1.20/";
    device.deviceType = "urn:x";
    device.udn = "uuid:1";
    device.descriptionUrl = "http://192.168.1.20:1/d.xml";
    device.ipv6 = {"fe80::1%eth0", "2001:db8::1"};
    device.location = "Hall";
    device.serial = "S1";
    device.firmware = "1.2";
    device.profiles = {"T", "G"};
    device.types = {"{http://x}A"};
    device.scopes = {"onvif://b", "onvif://a"};
    device.xaddrs = {"http://192.168.1.20/onvif"};
    device.uuid = "urn:uuid:7";
    device.metadataVersion = 3;
    device.claimedMac = "00:1B:FF:01:02:04";
    device.reach = Reach::Foreign;
    device.sharedAddress = true;
    device.lastSeen = "2026-11-21T08:15:31Z";
    device.seenVia = {{"eth0", "192.168.1.2"}, {"", "10.0.0.2"}};
    device.firstSeen = "2026-11-21T08:15:30Z";
    device.site = "berlin";
    return device;
}

}  // namespace

TEST(DeviceJson, WhatIsWrittenIsRead) {
    EXPECT_EQ(DeviceFromJson(Json::parse(DumpLine(DeviceToJson(Full())))), Full());
}

TEST(DeviceJson, KnownAloneIsReadAsTheSameDevice) {
    EXPECT_EQ(DeviceFromJson(KnownToJson(Full())), Full());
    Device device;
    device.ip = "192.168.1.20";
    EXPECT_EQ(KnownToJson(device), (Json{{"ip", "192.168.1.20"}}));
    EXPECT_EQ(DeviceFromJson(KnownToJson(device)), device);
}

TEST(DeviceJson, UnknownsAreReadAsSuch) {
    Device device;
    device.ip = "192.168.1.20";
    EXPECT_EQ(DeviceFromJson(DeviceToJson(device)), device);
}

TEST(DeviceJson, WithoutAnAddressItIsNoDevice) {
    EXPECT_FALSE(DeviceFromJson(Json::object()));
    EXPECT_FALSE(DeviceFromJson({{"ip", "camera.local"}}));
    EXPECT_FALSE(DeviceFromJson({{"ip", 7}}));
    EXPECT_FALSE(DeviceFromJson(Json::array({1})));
}

TEST(DeviceJson, MembersOfOtherTypesStayUnknown) {
    const auto device = DeviceFromJson({{"ip", "1.2.3.4"},
                                        {"port", "80"},
                                        {"hardware", {1, 2}},
                                        {"protocols", "onvif"},
                                        {"otherIps", {1, "x", "5.6.7.8"}},
                                        {"seenVia", {1, Json::object()}}});
    ASSERT_TRUE(device);
    EXPECT_EQ(device->port, 0);
    EXPECT_EQ(device->hardware, "");
    EXPECT_FALSE(device->protocols.onvif);
    EXPECT_TRUE(device->seenVia.empty());
    EXPECT_EQ(device->otherIps, std::vector<std::string>{"5.6.7.8"});
}

TEST(DeviceJson, PortsBeyondAnIntStayUnknown) {
    EXPECT_EQ(DeviceFromJson({{"ip", "1.2.3.4"}, {"port", 99999999999}})->port, 0);
    EXPECT_EQ(DeviceFromJson({{"ip", "1.2.3.4"}, {"port", 18446744073709551615U}})->port, 0);
    EXPECT_EQ(DeviceFromJson({{"ip", "1.2.3.4"}, {"port", -7}})->port, -7);
}

TEST(DeviceJson, EveryMemberOfADeviceIsWritten) {
    const Json json = DeviceToJson(Full());
    for (const Field& field : Fields()) {
        EXPECT_FALSE(json.at(field.name).is_null()) << field.name;
        EXPECT_TRUE(IsKnown(field, Full())) << field.name;
    }
}

TEST(DeviceJson, UnknownMembersOfALaterReleaseArePassedOver) {
    Json json = DeviceToJson(Full());
    json["battery"] = 7;
    EXPECT_EQ(DeviceFromJson(json), Full());
}

TEST(DeviceJson, DeviceWithIpv6AloneIsOne) {
    const auto device = DeviceFromJson({{"ip", nullptr}, {"ipv6", {"fe80::1%eth0", "x", "::1%"}}});
    ASSERT_TRUE(device);
    EXPECT_EQ(device->ipv6, std::vector<std::string>{"fe80::1%eth0"});
}

TEST(DeviceJson, UnknownIsNull) {
    Device device;
    device.ip = "1.2.3.4";
    const Json json = DeviceToJson(device);
    for (const char* name : {"port", "mac", "reach", "metadataVersion"}) {
        EXPECT_TRUE(json.at(name).is_null()) << name;
    }
    EXPECT_EQ(json.at("kind"), "unknown");
    EXPECT_EQ(json.at("xaddrs"), Json::array());
    EXPECT_EQ(json.at("sharedAddress"), false);
}

TEST(DeviceJson, LongListsStayUnknown) {
    Json json{{"ip", "1.2.3.4"}, {"scopes", Json::array()}};
    for (int i = 0; i < 65; ++i) {
        json["scopes"].push_back("s");
    }
    EXPECT_TRUE(DeviceFromJson(json)->scopes.empty());
}
