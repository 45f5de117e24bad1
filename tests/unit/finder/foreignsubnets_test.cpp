#include "finder/foreignsubnets.h"

#include <gmock/gmock.h>

using namespace Lanscout;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

const Target kVia{"eth0", "10.0.0.1"};

Device At(const std::string& ip, Reach reach = Reach::Foreign, const Target& via = kVia) {
    Device device;
    device.ip = ip;
    device.reach = reach;
    device.seenVia = {via};
    return device;
}

}  // namespace

TEST(ForeignSubnets, CommandComesWithTheDevice) {
    const auto problems = ForeignSubnets(std::vector{At("192.168.77.5")});
    ASSERT_THAT(problems, SizeIs(1));
    EXPECT_EQ(problems[0].weight, Problem::Weight::Notice);
    EXPECT_EQ(ProblemText(problems[0]),
              "lanscout: eth0 (10.0.0.1): 192.168.77.5 has an address of another subnet, "
              "192.168.77.0/24. To reach it: ip address add 192.168.77.2/24 dev eth0");
}

TEST(ForeignSubnets, EachSubnetOfAnInterfaceIsToldOnce) {
    const auto problems =
        ForeignSubnets(std::vector{At("192.168.77.5"), At("192.168.77.2"), At("192.168.78.5"),
                                   At("192.168.77.9", Reach::Foreign, {"eth1", "10.1.0.1"})});
    ASSERT_THAT(problems, SizeIs(3));
    EXPECT_EQ(problems[0].what, "2 devices have addresses of another subnet, 192.168.77.0/24");
    EXPECT_EQ(problems[0].remedy, "To reach it: ip address add 192.168.77.3/24 dev eth0");
    EXPECT_EQ(problems[2].target.interface, "eth1");
}

TEST(ForeignSubnets, OtherAddressesOfDevicesAreTakenToo) {
    Device several = At("192.168.77.5");
    several.otherIps = {"192.168.77.2"};
    const auto problems = ForeignSubnets(std::vector{several});
    ASSERT_THAT(problems, SizeIs(1));
    EXPECT_EQ(problems[0].remedy, "To reach it: ip address add 192.168.77.3/24 dev eth0");
}

TEST(ForeignSubnets, WhatIsLocalOrRoutedIsReachable) {
    EXPECT_THAT(ForeignSubnets(std::vector{At("192.168.77.5", Reach::Local),
                                           At("192.168.77.5", Reach::Routed),
                                           At("192.168.77.5", Reach::Unknown)}),
                IsEmpty());
    EXPECT_THAT(ForeignSubnets(std::vector{At("")}), IsEmpty());
}

TEST(ForeignSubnets, FloodIsBounded) {
    std::vector<Device> devices;
    for (int i = 0; i < 200; ++i) {
        devices.push_back(At("192.168." + std::to_string(i) + ".5"));
    }
    EXPECT_THAT(ForeignSubnets(devices), SizeIs(16));
}
