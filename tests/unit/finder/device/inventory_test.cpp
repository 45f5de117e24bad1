#include "finder/device/inventory.h"

#include <gtest/gtest.h>

using namespace Lanscout;
using Change = DeviceTable::Change;

namespace {

const Target kFirst{"eth0", "192.168.1.2"};
const Target kSecond{"eth1", "192.168.2.2"};
constexpr char kMac[] = "00:1B:FF:01:02:03";
constexpr char kOtherMac[] = "00:1B:FF:01:02:04";

Device Onvif(const std::string& ip, const std::string& mac = "", const std::string& hardware = "") {
    Device device;
    device.onvif = true;
    device.ip = ip;
    device.port = 80;
    device.mac = mac;
    device.hardware = hardware;
    return device;
}

Device Upnp(const std::string& ip, const std::string& name) {
    Device device;
    device.upnp = true;
    device.ip = ip;
    device.port = 49152;
    device.name = name;
    return device;
}

}  // namespace

TEST(DeviceTable, BothProtocolsMakeOneDevice) {
    DeviceTable table;
    EXPECT_EQ(table.Add(Upnp("192.168.1.9", "Gate"), kFirst).change, Change::Added);
    EXPECT_EQ(table.Add(Onvif("192.168.1.9", kMac, "IPC"), kFirst).change, Change::Updated);
    ASSERT_EQ(table.Devices().size(), 1U);
    const Device& device = table.Devices()[0];
    EXPECT_TRUE(device.onvif && device.upnp);
    EXPECT_EQ(device.name, "Gate");
    EXPECT_EQ(device.hardware, "IPC");
    EXPECT_EQ(device.mac, kMac);
}

TEST(DeviceTable, CameraSearchNamesThePortInEitherOrder) {
    DeviceTable table;
    table.Add(Upnp("192.168.1.9", ""), kFirst);
    table.Add(Onvif("192.168.1.9"), kFirst);
    table.Add(Onvif("192.168.1.10"), kFirst);
    table.Add(Upnp("192.168.1.10", ""), kFirst);
    EXPECT_EQ(table.Devices()[0].port, 80);
    EXPECT_EQ(table.Devices()[1].port, 80);
}

TEST(DeviceTable, SameSightingAgainChangesNothing) {
    DeviceTable table;
    table.Add(Onvif("192.168.1.9", kMac), kFirst);
    EXPECT_EQ(table.Add(Onvif("192.168.1.9", kMac), kFirst).change, Change::None);
}

TEST(DeviceTable, EmptyTextReplacesNothing) {
    DeviceTable table;
    table.Add(Onvif("192.168.1.9", kMac, "IPC"), kFirst);
    table.Add(Onvif("192.168.1.9"), kFirst);
    EXPECT_EQ(table.Devices()[0].hardware, "IPC");
    EXPECT_EQ(table.Devices()[0].mac, kMac);
}

TEST(DeviceTable, SameAddressThroughTwoInterfacesIsOneDevice) {
    DeviceTable table;
    table.Add(Onvif("192.168.1.9", kMac), kFirst);
    table.Add(Onvif("192.168.1.9", kMac), kSecond);
    ASSERT_EQ(table.Devices().size(), 1U);
    EXPECT_EQ(table.Devices()[0].seenVia, (std::vector<Target>{kFirst, kSecond}));
}

TEST(DeviceTable, SameAddressOnTwoNetworksIsTwoDevices) {
    DeviceTable table;
    table.Add(Onvif("192.168.1.9", kMac), kFirst);
    EXPECT_EQ(table.Add(Onvif("192.168.1.9", kOtherMac), kSecond).change, Change::Added);
}

TEST(DeviceTable, SameMacThroughTwoInterfacesIsOneDeviceWithTwoAddresses) {
    DeviceTable table;
    table.Add(Onvif("192.168.1.9", kMac, "IPC"), kFirst);
    table.Add(Onvif("192.168.2.9", kMac, "IPC"), kSecond);
    ASSERT_EQ(table.Devices().size(), 1U);
    EXPECT_EQ(table.Devices()[0].otherIps, std::vector<std::string>{"192.168.2.9"});
    EXPECT_EQ(table.Add(Upnp("192.168.2.9", "Gate"), kSecond).change, Change::Updated);
}

TEST(DeviceTable, CamerasBehindARepeaterStayApart) {
    DeviceTable table;
    table.Add(Onvif("192.168.1.9", kMac, "IPC"), kFirst);
    EXPECT_EQ(table.Add(Onvif("192.168.1.10", kMac, "IPC"), kFirst).change, Change::Added);
}

TEST(DeviceTable, DifferentHardwareBehindOneMacStaysApart) {
    DeviceTable table;
    table.Add(Onvif("192.168.1.9", kMac, "IPC-1"), kFirst);
    EXPECT_EQ(table.Add(Onvif("192.168.2.9", kMac, "IPC-2"), kSecond).change, Change::Added);
}

TEST(DeviceTable, MacThatIsLearntLaterIsFoundByIt) {
    DeviceTable table;
    table.Add(Upnp("192.168.1.9", "Gate"), kFirst);
    table.Add(Onvif("192.168.1.9", kMac), kFirst);
    EXPECT_EQ(table.Add(Onvif("192.168.2.9", kMac), kSecond).index, 0U);
}

TEST(DeviceTable, CameraWinsOverOther) {
    DeviceTable table;
    Device device = Upnp("192.168.1.9", "Gate");
    device.kind = Kind::Camera;
    table.Add(device, kFirst);
    device.kind = Kind::Other;
    table.Add(device, kFirst);
    EXPECT_EQ(table.Devices()[0].kind, Kind::Camera);
}

TEST(DeviceTable, FloodEndsAtTheBound) {
    DeviceTable table;
    Device device = Onvif("");
    for (std::size_t i = 0; i < DeviceTable::kMostDevices; ++i) {
        device.ip = "10." + std::to_string(i >> 16) + "." + std::to_string(i >> 8 & 255) + "." +
                    std::to_string(i & 255);
        ASSERT_EQ(table.Add(device, kFirst).change, Change::Added);
    }
    device.ip = "11.0.0.1";
    EXPECT_EQ(table.Add(device, kFirst).change, Change::Full);
    EXPECT_EQ(table.Devices().size(), DeviceTable::kMostDevices);
}
