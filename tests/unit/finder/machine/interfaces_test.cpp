#include "finder/machine/interfaces.h"

#include <gmock/gmock.h>

using namespace Lanscout;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// interface, address, network, up, loopback, multicast
const std::vector<LocalAddress> kMachine{
    {"lo", "127.0.0.1", "127.0.0.0/8", true, true, false},
    {"eth0", "192.168.1.2", "192.168.1.0/24", true, false, true},
    {"eth0", "10.0.0.2", "10.0.0.0/8", true, false, true},
    {"eth1", "192.168.2.2", "192.168.2.0/24", false, false, true},
    {"wlan0", "192.168.3.2", "192.168.3.0/24", true, false, true},
    {"tun0", "10.8.0.2", "10.8.0.0/24", true, false, false},
    {"bare0", "", "", true, false, true},
};

std::string OnlyProblem(const Choice& choice) {
    EXPECT_TRUE(choice.targets.empty());
    EXPECT_EQ(choice.problems.size(), 1U);
    return choice.problems.empty() ? "" : ProblemText(choice.problems[0]);
}

}  // namespace

TEST(ChooseTargets, EveryUsableAddressByDefault) {
    EXPECT_THAT(ChooseTargets(kMachine, {}, {}).targets,
                ElementsAre(Target{"eth0", "192.168.1.2"}, Target{"eth0", "10.0.0.2"},
                            Target{"wlan0", "192.168.3.2"}));
}

TEST(ChooseTargets, InterfaceMeansAllItsAddresses) {
    EXPECT_THAT(ChooseTargets(kMachine, {"eth0"}, {}).targets,
                ElementsAre(Target{"eth0", "192.168.1.2"}, Target{"eth0", "10.0.0.2"}));
}

TEST(ChooseTargets, WhatIsNamedTwiceIsSearchedOnce) {
    EXPECT_THAT(ChooseTargets(kMachine, {"wlan0", "wlan0"}, {"192.168.3.2"}).targets,
                ElementsAre(Target{"wlan0", "192.168.3.2"}));
}

TEST(ChooseTargets, NamedAddressNeedNotMulticast) {
    EXPECT_THAT(ChooseTargets(kMachine, {}, {"10.8.0.2"}).targets,
                ElementsAre(Target{"tun0", "10.8.0.2"}));
}

TEST(ChooseTargets, EveryLoopbackAddressIsLocal) {
    EXPECT_THAT(ChooseTargets(kMachine, {}, {"127.77.0.1"}).targets,
                ElementsAre(Target{"lo", "127.77.0.1"}));
}

TEST(ChooseTargets, UnknownInterfaceIsSaidWithThoseThatThereAre) {
    EXPECT_EQ(OnlyProblem(ChooseTargets(kMachine, {"eth9"}, {})),
              "lanscout: eth9: no such interface. This machine has: lo, eth0, eth1, wlan0, tun0, "
              "bare0");
}

TEST(ChooseTargets, InterfaceThatIsDownComesWithTheCommand) {
    EXPECT_THAT(OnlyProblem(ChooseTargets(kMachine, {"eth1"}, {})),
                HasSubstr("ip link set dev eth1 up"));
    EXPECT_THAT(OnlyProblem(ChooseTargets(kMachine, {}, {"192.168.2.2"})),
                HasSubstr("ip link set dev eth1 up"));
}

TEST(ChooseTargets, InterfaceWithoutAddressIsSaid) {
    EXPECT_THAT(OnlyProblem(ChooseTargets(kMachine, {"bare0"}, {})), HasSubstr("no IPv4 address"));
}

TEST(ChooseTargets, ForeignAddressIsSaid) {
    EXPECT_THAT(OnlyProblem(ChooseTargets(kMachine, {}, {"192.0.2.1"})),
                HasSubstr("192.0.2.1: no interface of this machine has that address"));
}

TEST(ChooseTargets, GoodOnesAreSearchedBesideBadOnes) {
    const Choice choice = ChooseTargets(kMachine, {"eth9", "wlan0"}, {});
    EXPECT_EQ(choice.targets.size(), 1U);
    EXPECT_EQ(choice.problems.size(), 1U);
}

TEST(ChooseTargets, NothingUsableIsSaid) {
    EXPECT_THAT(OnlyProblem(ChooseTargets({kMachine[0]}, {}, {})),
                HasSubstr("no usable interface"));
}

TEST(ChooseTargets, EveryNameIsListedThoughAnotherHoldsIt) {
    EXPECT_THAT(OnlyProblem(ChooseTargets({{"veth0", "", "", true, false, true},
                                           {"eth0", "", "", true, false, true},
                                           {"eth0", "", "", true, false, true}},
                                          {"eth9"}, {})),
                HasSubstr("This machine has: veth0, eth0"));
}

TEST(ChooseTargets, BridgesOfContainerEnginesAreLeftOutInOneLine) {
    std::vector<LocalAddress> local{kMachine[1]};
    for (const char* name : {"docker0", "br-0a1b2c", "veth12", "virbr0", "cni0", "podman1"}) {
        local.push_back({name, std::string("172.17.0.") + name, "", true, false, true});
    }
    const Choice choice = ChooseTargets(local, {}, {});
    EXPECT_THAT(choice.targets, ElementsAre(Target{"eth0", "192.168.1.2"}));
    ASSERT_EQ(choice.problems.size(), 1U);
    EXPECT_EQ(choice.problems[0].weight, Problem::Weight::Notice);
    EXPECT_EQ(ProblemText(choice.problems[0]),
              "lanscout: bridges of container engines and virtual machines are left out: docker0, "
              "br-0a1b2c, veth12, virbr0, cni0, podman1. To search one, name it, as with: "
              "--interface docker0");
}

TEST(ChooseTargets, NamesThatOnlyResembleAreSearched) {
    std::vector<LocalAddress> local;
    for (const char* name : {"docker0x", "br0", "bridge", "eveth0", "vir0"}) {
        local.push_back({name, name, "", true, false, true});
    }
    const Choice choice = ChooseTargets(local, {}, {});
    EXPECT_EQ(choice.targets.size(), local.size());
    EXPECT_THAT(choice.problems, IsEmpty());
}

TEST(ChooseTargets, BridgeThatIsNotUsableIsNotSpokenOf) {
    const Choice choice = ChooseTargets(
        {kMachine[1], {"docker0", "172.17.0.1", "172.17.0.0/16", false, false, true}}, {}, {});
    EXPECT_THAT(choice.problems, IsEmpty());
}

TEST(ChooseTargets, NamedBridgeIsSearched) {
    const std::vector<LocalAddress> local{
        {"docker0", "172.17.0.1", "172.17.0.0/16", true, false, true}};
    EXPECT_THAT(ChooseTargets(local, {"docker0"}, {}).targets,
                ElementsAre(Target{"docker0", "172.17.0.1"}));
    EXPECT_THAT(ChooseTargets(local, {}, {"172.17.0.1"}).targets,
                ElementsAre(Target{"docker0", "172.17.0.1"}));
}

TEST(ChooseTargets, BridgesAloneAreNothingUsable) {
    const Choice choice =
        ChooseTargets({{"docker0", "172.17.0.1", "172.17.0.0/16", true, false, true}}, {}, {});
    ASSERT_EQ(choice.problems.size(), 2U);
    EXPECT_THAT(ProblemText(choice.problems[0]), HasSubstr("--interface docker0"));
    EXPECT_THAT(ProblemText(choice.problems[1]), HasSubstr("no usable interface"));
}

TEST(ChooseTargets, ContainerBehindABridgeIsToldBothWaysOut) {
    LocalAddress bridged{"eth0", "172.17.0.2", "172.17.0.0/16", true, false, true};
    bridged.bridged = true;
    const Choice choice = ChooseTargets({kMachine[0], bridged}, {}, {});
    EXPECT_EQ(choice.targets.size(), 1U);
    ASSERT_EQ(choice.problems.size(), 1U);
    EXPECT_EQ(choice.problems[0].weight, Problem::Weight::Notice);
    EXPECT_THAT(ProblemText(choice.problems[0]), HasSubstr("--network host"));
    EXPECT_THAT(ProblemText(choice.problems[0]), HasSubstr("--to 192.168.1.0/24"));
    EXPECT_THAT(ChooseTargets({bridged, kMachine[4]}, {}, {}).problems, IsEmpty());
    EXPECT_THAT(ChooseTargets({kMachine[4], bridged}, {}, {}).problems, IsEmpty());
}

TEST(ChooseTargets, AddressOnTwoInterfacesIsSearchedOnceAndSaid) {
    const Choice choice = ChooseTargets({{"eth0", "10.0.0.2", "10.0.0.0/8", true, false, true},
                                         {"wlan0", "10.0.0.2", "10.0.0.0/8", true, false, true}},
                                        {}, {});
    EXPECT_THAT(choice.targets, ElementsAre(Target{"eth0", "10.0.0.2"}));
    ASSERT_EQ(choice.problems.size(), 1U);
    EXPECT_EQ(choice.problems[0].weight, Problem::Weight::Notice);
    EXPECT_EQ(ProblemText(choice.problems[0]),
              "lanscout: wlan0 (10.0.0.2): eth0 has the same address; it is searched once, through "
              "eth0. Give one of them another address");
}

TEST(ReadLocalAddresses, LoopbackOfThisMachineIsAmongThem) {
    const auto local = ReadLocalAddresses();
    const auto found = std::find_if(local.begin(), local.end(), [](const LocalAddress& one) {
        return one.address == "127.0.0.1";
    });
    ASSERT_NE(found, local.end());
    EXPECT_TRUE(found->loopback && found->up);
    EXPECT_EQ(found->network, "127.0.0.0/8");
    EXPECT_EQ(found->prefixBits, 8);
}
