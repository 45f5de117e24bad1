#include "tools/lanscout/task/watchlist.h"

#include <gtest/gtest.h>

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
