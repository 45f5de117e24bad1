#include "tools/lanscout/task/watchlist.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace Lanscout;
using What = DeviceEvent::What;

namespace {

constexpr char kMac[] = "00:1B:FF:01:02:03";

Device At(const std::string& ip, const std::string& hardware = "IPC") {
    Device device;
    device.ip = ip;
    device.protocols.onvif = true;
    device.port = 80;
    device.hardware = hardware;
    device.firstSeen = "first";
    return device;
}

Report Round(std::vector<Device> devices, const std::string& time,
             Outcome outcome = Outcome::Done) {
    Report report;
    report.devices = std::move(devices);
    report.finished = time;
    report.searches = {{{"eth0", "10.0.0.254"}, SourceId::Probes, Work::Onvif, outcome}};
    return report;
}

}  // namespace

TEST(Watch, FirstRoundMakesAllAppear) {
    WatchList list;
    const auto events = list.Take(Round({At("10.0.0.1"), At("10.0.0.2")}, "1"));
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].what, What::Appeared);
    EXPECT_TRUE(list.Take(Round({At("10.0.0.1"), At("10.0.0.2")}, "2")).empty());
}

TEST(Watch, OneMissedRoundIsNoNews) {
    WatchList list;
    list.Take(Round({At("10.0.0.1")}, "1"));
    EXPECT_TRUE(list.Take(Round({}, "2")).empty());
    EXPECT_TRUE(list.Take(Round({At("10.0.0.1")}, "3")).empty());
    EXPECT_TRUE(list.Take(Round({}, "4")).empty());
}

TEST(Watch, TwoMissedRoundsAreAGoneDevice) {
    WatchList list;
    list.Take(Round({At("10.0.0.1")}, "1"));
    list.Take(Round({}, "2"));
    const auto events = list.Take(Round({}, "3"));
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].what, What::Gone);
    EXPECT_EQ(events[0].lastSeen, "1");
    EXPECT_EQ(events[0].time, "3");
    EXPECT_TRUE(list.Devices().empty());
}

TEST(Watch, GoneDeviceReturns) {
    WatchList list;
    list.Take(Round({At("10.0.0.1")}, "1"));
    list.Take(Round({}, "2"));
    list.Take(Round({}, "3"));
    const auto events = list.Take(Round({At("10.0.0.1")}, "4"));
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].what, What::Returned);
    EXPECT_EQ(events[0].lastSeen, "1");
}

TEST(Watch, RoundThatWasNotCompleteMakesNothingGoAway) {
    WatchList list;
    list.Take(Round({At("10.0.0.1")}, "1"));
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(list.Take(Round({}, "2", Outcome::Failed)).empty());
    }
    EXPECT_EQ(list.Devices().size(), 1U);
}

TEST(Watch, KnownDeviceAtANewAddressHasMoved) {
    WatchList list;
    Device device = At("10.0.0.1");
    device.mac = kMac;
    list.Take(Round({device}, "1"));
    device.ip = "10.0.0.9";
    const auto events = list.Take(Round({device}, "2"));
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].what, What::Moved);
    EXPECT_EQ(events[0].changes, (std::vector<FieldChange>{{"ip", "10.0.0.1", "10.0.0.9"}}));
    EXPECT_TRUE(list.Take(Round({device}, "3")).empty());
}

TEST(Watch, WhatOneRoundDidNotLearnIsNotForgotten) {
    WatchList list;
    list.Take(Round({At("10.0.0.1", "IPC")}, "1"));
    list.Take(Round({At("10.0.0.1", "")}, "2"));
    EXPECT_EQ(list.Devices()[0].hardware, "IPC");
    EXPECT_EQ(list.Take(Round({At("10.0.0.1", "Other")}, "3")).size(), 1U);
}

TEST(Watch, FloodIsNotKept) {
    WatchList list;
    std::vector<Device> flood;
    for (std::size_t i = 0; i < WatchList::kMostDevices + 5; ++i) {
        flood.push_back(At("10.0." + std::to_string(i >> 8) + "." + std::to_string(i & 255)));
    }
    EXPECT_EQ(list.Take(Round(flood, "1")).size(), WatchList::kMostDevices);
    EXPECT_TRUE(list.IsFull());
    EXPECT_EQ(list.Devices().size(), WatchList::kMostDevices);
}

TEST(Watch, MovedDeviceMayHaveChangedToo) {
    WatchList list;
    Device device = At("10.0.0.1", "A");
    device.mac = kMac;
    list.Take(Round({device}, "1"));
    device.ip = "10.0.0.9";
    device.hardware = "B";
    const auto events = list.Take(Round({device}, "2"));
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].what, What::Moved);
    EXPECT_EQ(events[0].changes.size(), 2U);
    EXPECT_EQ(events[0].device.ip, "10.0.0.9");
}

TEST(Watch, DeviceWithoutAMacAddressIsFollowedByItsId) {
    WatchList list;
    Device device = At("10.0.0.1");
    device.uuid = "urn:uuid:one";
    list.Take(Round({device}, "1"));
    device.ip = "10.0.0.9";
    const auto events = list.Take(Round({device}, "2"));
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].what, What::Moved);
}

TEST(Watch, OtherMacAddressAtAnAddressIsAnotherDevice) {
    WatchList list;
    Device device = At("10.0.0.1");
    device.mac = kMac;
    list.Take(Round({device}, "1"));
    device.mac = "00:1B:FF:01:02:99";
    const auto events = list.Take(Round({device}, "2"));
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].what, What::Appeared);
    EXPECT_EQ(list.Count(), 2U) << "the other one has been missed once";
}

TEST(Watch, AnyOfSeveralAddressesMayComeFirst) {
    WatchList list;
    Device device = At("10.0.0.1");
    device.mac = kMac;
    device.otherIps = {"10.0.0.2"};
    list.Take(Round({device}, "1"));
    device.ip = "10.0.0.2";
    device.otherIps = {"10.0.0.1"};
    EXPECT_TRUE(list.Take(Round({device}, "2")).empty());
    device.ip = "10.0.0.1";
    device.otherIps.clear();
    EXPECT_TRUE(list.Take(Round({device}, "3")).empty());
}

TEST(Watch, ReturnedDeviceTellsWhatIsDifferent) {
    WatchList list;
    list.Take(Round({At("10.0.0.1", "A")}, "1"));
    list.Take(Round({}, "2"));
    list.Take(Round({}, "3"));
    const auto events = list.Take(Round({At("10.0.0.1", "B")}, "4"));
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].what, What::Returned);
    EXPECT_EQ(events[0].changes, (std::vector<FieldChange>{{"hardware", "A", "B"}}));
    EXPECT_EQ(events[0].time, "4");
}

TEST(Watch, GoneIsToldOnce) {
    WatchList list;
    list.Take(Round({At("10.0.0.1")}, "1"));
    list.Take(Round({}, "2"));
    EXPECT_EQ(list.Take(Round({}, "3")).size(), 1U);
    EXPECT_TRUE(list.Take(Round({}, "4")).empty());
    EXPECT_TRUE(list.Take(Round({}, "5")).empty());
}

TEST(Watch, FlagsAndListsAreThoseOfTheLastRound) {
    WatchList list;
    Device device = At("10.0.0.1");
    device.sharedAddress = true;
    device.scopes = {"a", "b"};
    list.Take(Round({device}, "1"));
    device.sharedAddress = false;
    device.scopes = {"c"};
    list.Take(Round({device}, "2"));
    EXPECT_FALSE(list.Devices()[0].sharedAddress);
    EXPECT_EQ(list.Devices()[0].scopes, std::vector<std::string>{"c"});
}

TEST(Watch, BothSearchesOfADeviceAreRemembered) {
    WatchList list;
    Device device = At("10.0.0.1");
    device.protocols = {true, true};
    list.Take(Round({device}, "1"));
    device.protocols = {true, false};
    device.firstSeen = "later";
    list.Take(Round({device}, "2"));
    EXPECT_TRUE(list.Devices()[0].protocols.upnp);
    EXPECT_EQ(list.Devices()[0].firstSeen, "first");
}

TEST(Watch, OldestOfThoseThatAreGoneMakesRoom) {
    std::vector<WatchList::Entry> entries;
    for (std::size_t i = 0; i < WatchList::kMostDevices; ++i) {
        const std::string ip = "10.1." + std::to_string(i >> 8) + "." + std::to_string(i & 255);
        entries.push_back({At(ip), i == 77 ? "1" : "2", i == 50 || i == 77, 0});
    }
    WatchList list(entries);
    EXPECT_EQ(list.Take(Round({At("10.2.0.1")}, "3", Outcome::Failed)).size(), 1U);
    EXPECT_FALSE(list.IsFull());
    const auto has = [&](const std::string& ip) {
        return std::any_of(list.Entries().begin(), list.Entries().end(),
                           [&](const auto& entry) { return entry.device.ip == ip; });
    };
    EXPECT_FALSE(has("10.1.0.77"));
    EXPECT_TRUE(has("10.1.0.50"));
    EXPECT_TRUE(has("10.2.0.1"));
    EXPECT_EQ(list.Entries().size(), WatchList::kMostDevices);
}
