#include "finder/device/comparison.h"

#include <gtest/gtest.h>

#include "finder/event.h"

using namespace Lanscout;

namespace {

constexpr char kMac[] = "00:1B:FF:01:02:03";
constexpr char kOtherMac[] = "00:1B:FF:01:02:04";

Device At(const std::string& ip, const std::string& mac = "", const std::string& hardware = "IPC") {
    Device device;
    device.ip = ip;
    device.port = 80;
    device.protocols.onvif = true;
    device.mac = mac;
    device.hardware = hardware;
    return device;
}

}  // namespace

TEST(Compare, SameDevicesAreTheSame) {
    EXPECT_TRUE(
        Compare({At("10.0.0.1"), At("10.0.0.2")}, {At("10.0.0.2"), At("10.0.0.1")}).IsSame());
}

TEST(Compare, MissingAndNewAreTold) {
    const Comparison comparison = Compare({At("10.0.0.1")}, {At("10.0.0.2")});
    ASSERT_EQ(comparison.missing.size(), 1U);
    ASSERT_EQ(comparison.added.size(), 1U);
    EXPECT_EQ(comparison.missing[0].ip, "10.0.0.1");
    EXPECT_EQ(comparison.added[0].ip, "10.0.0.2");
}

TEST(Compare, MovedDeviceIsKnownByItsMac) {
    const Comparison comparison = Compare({At("10.0.0.1", kMac)}, {At("10.0.0.7", kMac)});
    ASSERT_EQ(comparison.changed.size(), 1U);
    EXPECT_EQ(comparison.changed[0].changes,
              (std::vector<FieldChange>{{"ip", "10.0.0.1", "10.0.0.7"}}));
    EXPECT_TRUE(comparison.missing.empty() && comparison.added.empty());
}

TEST(Compare, ExchangedAddressesAreTwoMoves) {
    const Comparison comparison = Compare({At("10.0.0.1", kMac), At("10.0.0.2", kOtherMac)},
                                          {At("10.0.0.1", kOtherMac), At("10.0.0.2", kMac)});
    EXPECT_EQ(comparison.changed.size(), 2U);
}

TEST(Compare, AnotherDeviceAtTheAddressIsMissingAndNew) {
    const Comparison comparison = Compare({At("10.0.0.1", kMac)}, {At("10.0.0.1", kOtherMac)});
    EXPECT_EQ(comparison.missing.size(), 1U);
    EXPECT_EQ(comparison.added.size(), 1U);
}

TEST(Compare, DevicesBehindARepeaterAreKnownByTheirAddress) {
    EXPECT_TRUE(Compare({At("10.0.0.1", kMac), At("10.0.0.2", kMac)},
                        {At("10.0.0.2", kMac), At("10.0.0.1", kMac)})
                    .IsSame());
}

TEST(Compare, OneGoneAndOneNewBehindARepeaterIsNoMove) {
    const Comparison comparison = Compare({At("10.0.0.1", kMac), At("10.0.0.2", kMac)},
                                          {At("10.0.0.1", kMac), At("10.0.0.3", kMac)});
    EXPECT_EQ(comparison.missing.size(), 1U);
    EXPECT_EQ(comparison.added.size(), 1U);
    EXPECT_TRUE(comparison.changed.empty());
}

TEST(Compare, MovedDeviceWithoutMacIsKnownByItsUniqueName) {
    Device before = At("10.0.0.1");
    Device after = At("10.0.0.7");
    before.udn = after.udn = "uuid:1";
    EXPECT_EQ(Compare({before}, {after}).changed.size(), 1U);
}

TEST(Compare, UnknownIsNoChange) {
    Device after = At("10.0.0.1", kMac, "");
    after.protocols.upnp = true;
    after.name = "Gate";
    EXPECT_TRUE(Compare({At("10.0.0.1")}, {after}).IsSame());
}

TEST(Compare, SwappedListsGiveTheMirroredResult) {
    const std::vector<Device> before{At("10.0.0.1", kMac), At("10.0.0.2"), At("10.0.0.3")};
    const std::vector<Device> after{At("10.0.0.9", kMac), At("10.0.0.3", "", "NEW"),
                                    At("10.0.0.4")};
    const Comparison there = Compare(before, after);
    const Comparison back = Compare(after, before);
    EXPECT_EQ(there.missing, back.added);
    EXPECT_EQ(there.added, back.missing);
    ASSERT_EQ(there.changed.size(), 2U);
    EXPECT_EQ(back.changed.size(), 2U);
}

TEST(Compare, AnotherIdAtTheAddressIsAnotherDevice) {
    Device before = At("10.0.0.1");
    Device after = At("10.0.0.1");
    before.uuid = "urn:uuid:1";
    after.uuid = "urn:uuid:2";
    EXPECT_EQ(Compare({before}, {after}).missing.size(), 1U);
}

TEST(Compare, SameMacOutweighsAnotherId) {
    Device before = At("10.0.0.1", kMac);
    Device after = At("10.0.0.7", kMac);
    before.uuid = "urn:uuid:1";
    after.uuid = "urn:uuid:2";
    EXPECT_TRUE(Compare({before}, {after}).missing.empty());
}

TEST(Compare, AnotherMacOutweighsTheSameId) {
    Device before = At("10.0.0.1", kMac);
    Device after = At("10.0.0.1", kOtherMac);
    before.uuid = after.uuid = "urn:uuid:1";
    EXPECT_EQ(Compare({before}, {after}).missing.size(), 1U);
}

TEST(Compare, ChangesAreSpelledOutSafely) {
    const Comparison comparison =
        Compare({At("10.0.0.1", kMac, "A")}, {At("10.0.0.1", kMac, "B\x1b[0m")});
    ASSERT_EQ(comparison.changed.size(), 1U);
    EXPECT_EQ(ChangesText(comparison.changed[0].changes), "hardware: A -> B\\x1b[0m");
}

TEST(CompareDocument, ReportIsReadBack) {
    Report report;
    report.devices = {At("10.0.0.1", kMac), At("10.0.0.2")};
    const auto read = DevicesFromDocument(DumpDocument(ReportToJson(report)));
    ASSERT_TRUE(std::holds_alternative<std::vector<Device>>(read));
    EXPECT_EQ(std::get<std::vector<Device>>(read), report.devices);
}

TEST(CompareDocument, WhatIsNoResultIsRefusedWithAReason) {
    for (const char* text : {"", "{", "[]", "{}", R"({"devices":7})", R"({"devices":[{}]})"}) {
        EXPECT_TRUE(std::holds_alternative<std::string>(DevicesFromDocument(text))) << text;
    }
}
