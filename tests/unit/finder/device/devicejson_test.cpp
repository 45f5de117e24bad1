#include "finder/device/devicejson.h"

#include <gtest/gtest.h>

using namespace Lanscout;

namespace {

Device Full() {
    Device device;
    device.ip = "192.168.1.20";
    device.otherIps = {"10.0.0.20"};
    device.port = 8080;
    device.onvif = device.upnp = true;
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
    device.location = "http://192.168.1.20:1/d.xml";
    device.seenVia = {{"eth0", "192.168.1.2"}, {"", "10.0.0.2"}};
    device.firstSeen = "2026-11-21T08:15:30Z";
    return device;
}

}  // namespace

TEST(DeviceJson, WhatIsWrittenIsRead) {
    EXPECT_EQ(DeviceFromJson(Json::parse(DumpLine(DeviceToJson(Full())))), Full());
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
    EXPECT_FALSE(device->onvif);
    EXPECT_EQ(device->otherIps, std::vector<std::string>{"5.6.7.8"});
}

TEST(DeviceJson, PortsBeyondAnIntStayUnknown) {
    EXPECT_EQ(DeviceFromJson({{"ip", "1.2.3.4"}, {"port", 99999999999}})->port, 0);
    EXPECT_EQ(DeviceFromJson({{"ip", "1.2.3.4"}, {"port", 18446744073709551615U}})->port, 0);
    EXPECT_EQ(DeviceFromJson({{"ip", "1.2.3.4"}, {"port", -7}})->port, -7);
}
