// Which subnet an address is in, and how to get into a foreign one.
#include <gmock/gmock.h>

#include <set>

#include "finder/machine/interfaces.h"

using namespace Lanscout;
using testing::StartsWith;

namespace {

LocalAddress Local(const char* interface, const char* address, int bits) {
    LocalAddress one{interface, address, "", true, false, true};
    one.prefixBits = bits;
    return one;
}

std::vector<LocalAddress> Machine() {
    std::vector<LocalAddress> machine{Local("eth0", "192.168.1.2", 24),
                                      Local("eth0:1", "10.1.2.3", 13),
                                      Local("eth1", "172.16.0.2", 30)};
    machine[0].ipv6 = {{"fe80::2", 64, true}, {"2001:db8:1:2::9", 60, false}};
    return machine;
}

const std::vector<Target> kTargets{
    {"eth0", "192.168.1.2"}, {"eth0:1", "10.1.2.3"}, {"eth1", "172.16.0.2"}};

Target Towards(const char* interface, const char* address) {
    return TargetTowards(kTargets, Machine(), interface, address);
}

bool NobodyHas(const std::string& /*address*/) {
    return false;
}

}  // namespace

TEST(IsInSubnetOf, PrefixDecides) {
    EXPECT_TRUE(IsInSubnetOf(Machine(), "eth0", "192.168.1.254"));
    EXPECT_FALSE(IsInSubnetOf(Machine(), "eth0", "192.168.2.2"));
    EXPECT_TRUE(IsInSubnetOf(Machine(), "eth1", "172.16.0.3"));
    EXPECT_FALSE(IsInSubnetOf(Machine(), "eth1", "172.16.0.4"));
}

TEST(IsInSubnetOf, EveryAddressOfTheInterfaceCountsAndNoOther) {
    EXPECT_TRUE(IsInSubnetOf(Machine(), "eth0", "10.7.255.255"));
    EXPECT_FALSE(IsInSubnetOf(Machine(), "eth0", "10.8.0.0"));
    EXPECT_FALSE(IsInSubnetOf(Machine(), "eth0", "172.16.0.3"));
    EXPECT_FALSE(IsInSubnetOf(Machine(), "eth9", "192.168.1.254"));
}

TEST(IsInSubnetOf, Ipv6PrefixDecidesWithAndWithoutZone) {
    EXPECT_TRUE(IsInSubnetOf(Machine(), "eth0", "fe80::1234"));
    EXPECT_TRUE(IsInSubnetOf(Machine(), "eth0", "fe80::1234%eth0"));
    EXPECT_FALSE(IsInSubnetOf(Machine(), "eth0", "fe80:0:0:1::1234"));
    EXPECT_TRUE(IsInSubnetOf(Machine(), "eth0", "2001:db8:1:f::1"));
    EXPECT_FALSE(IsInSubnetOf(Machine(), "eth0", "2001:db8:1:10::1"));
    EXPECT_FALSE(IsInSubnetOf(Machine(), "eth1", "fe80::1234"));
}

TEST(IsInSubnetOf, LongestPrefixMeansTheAddressItself) {
    std::vector<LocalAddress> machine{Local("eth0", "192.168.1.2", 32)};
    machine[0].ipv6 = {{"2001:db8::1", 128, false}};
    EXPECT_TRUE(IsInSubnetOf(machine, "eth0", "192.168.1.2"));
    EXPECT_FALSE(IsInSubnetOf(machine, "eth0", "192.168.1.3"));
    EXPECT_TRUE(IsInSubnetOf(machine, "eth0", "2001:db8::1"));
    EXPECT_FALSE(IsInSubnetOf(machine, "eth0", "2001:db8::2"));
}

TEST(IsInSubnetOf, WhatIsNoAddressIsInNone) {
    for (const char* text : {"", "eth0", "192.168.1", "192.168.1.2.3", "fe80::%eth0%x"}) {
        EXPECT_FALSE(IsInSubnetOf(Machine(), "eth1", text)) << text;
    }
    EXPECT_FALSE(IsInSubnetOf({Local("eth0", "", 0)}, "eth0", "192.168.1.2"));
}

TEST(TargetTowards, SubnetDecidesAndElseTheFirst) {
    EXPECT_EQ(Towards("eth0", "10.1.0.1"), kTargets[1]);
    EXPECT_EQ(Towards("eth0", "192.168.1.9"), kTargets[0]);
    EXPECT_EQ(Towards("eth0", "192.168.77.9"), kTargets[0]);
    EXPECT_EQ(Towards("eth1", "10.1.0.1"), kTargets[2]);
    EXPECT_EQ(Towards("eth1", "fe80::1"), kTargets[2]);
}

TEST(TargetTowards, InterfaceWithoutTargetIsNamedAlone) {
    EXPECT_EQ(Towards("wlan0", "10.1.0.1"), (Target{"wlan0", ""}));
}

TEST(WithZone, OnlyAddressesOfALinkHaveOne) {
    EXPECT_EQ(WithZone("fe80::1", "eth0"), "fe80::1%eth0");
    EXPECT_EQ(WithZone("2001:db8::1", "eth0"), "2001:db8::1");
    EXPECT_EQ(WithZone("192.168.1.2", "eth0"), "192.168.1.2");
}

TEST(LikelySubnet, OfTheUsualSizes) {
    EXPECT_EQ(LikelySubnet("192.168.77.5"), "192.168.77.0/24");
    EXPECT_EQ(LikelySubnet("169.254.7.5"), "169.254.0.0/16");
    EXPECT_EQ(LikelySubnet("fe80::1"), "");
}

TEST(CommandToReach, FirstFreeAddressIsTaken) {
    EXPECT_EQ(CommandToReach("192.168.77.5", "eth0", NobodyHas),
              "ip address add 192.168.77.2/24 dev eth0");
    const std::set<std::string> known{"192.168.77.2", "192.168.77.3"};
    EXPECT_EQ(CommandToReach("192.168.77.5", "eth0",
                             [&](const std::string& address) { return known.contains(address); }),
              "ip address add 192.168.77.4/24 dev eth0");
}

TEST(CommandToReach, DevicesOwnAddressIsNotTaken) {
    EXPECT_EQ(CommandToReach("192.168.77.2", "eth0", NobodyHas),
              "ip address add 192.168.77.3/24 dev eth0");
}

TEST(CommandToReach, LinkLocalSubnetIsLarger) {
    EXPECT_EQ(CommandToReach("169.254.9.5", "eth0", NobodyHas),
              "ip address add 169.254.9.2/16 dev eth0");
}

TEST(CommandToReach, NoneWhereAllAreTakenOrForIpv6) {
    EXPECT_EQ(CommandToReach("192.168.77.5", "eth0", [](const std::string&) { return true; }), "");
    EXPECT_EQ(CommandToReach("fe80::1", "eth0", NobodyHas), "");
}
