#include <gtest/gtest.h>
#include <net/if.h>

#include <cstring>
#include <string>

#include "host/sdkfuncdata.h"
#include "tests/unit/support/fakeinterfaces.h"

namespace {

constexpr unsigned kDown = IFF_BROADCAST;

class NetGetCardTest : public ::testing::Test {
protected:
    NetGetCardTest() { std::memset(&m_info, 0x5A, sizeof m_info); }

    int Ask(const std::string& ip) { return SDKFuncData::NetGetCard1(ip, m_info); }

    void AddEth0(unsigned flags = FakeInterfaces::kUp) {
        m_fake.AddDevice("eth0", 2, flags, {0x00, 0x0a, 0xff, 0x01, 0x02, 0x03});
        m_fake.AddAddress("eth0", flags, "192.168.1.5", "255.255.255.0", "192.168.1.255");
    }

    void ExpectUntouched() const {
        const std::string bytes(reinterpret_cast<const char*>(&m_info), sizeof m_info);
        EXPECT_EQ(bytes, std::string(sizeof m_info, 0x5A));
    }

    FakeInterfaces m_fake;
    _tag_NETINFO_ m_info;
};

TEST_F(NetGetCardTest, IndexFlagAndNameAreFilled) {
    m_fake.AddDevice("lo", 1, IFF_UP, {0, 0, 0, 0, 0, 0}, ARPHRD_LOOPBACK);
    AddEth0();
    ASSERT_EQ(Ask("192.168.1.5"), 1);
    EXPECT_EQ(m_info.nIndex, 2);
    EXPECT_EQ(m_info.bUsable, 1);
    EXPECT_STREQ(m_info.szName, "eth0");
}

TEST_F(NetGetCardTest, InterfaceThatIsDownIsFoundAndNotUsable) {
    AddEth0(kDown);
    ASSERT_EQ(Ask("192.168.1.5"), 1);
    EXPECT_EQ(m_info.bUsable, 0);
    EXPECT_STREQ(m_info.szName, "eth0");
}

TEST_F(NetGetCardTest, InterfaceWithoutCarrierIsUsable) {
    AddEth0(IFF_UP | IFF_BROADCAST);  // no IFF_RUNNING
    ASSERT_EQ(Ask("192.168.1.5"), 1);
    EXPECT_EQ(m_info.bUsable, 1);
}

TEST_F(NetGetCardTest, LabelOfAnAliasIsTracedToItsDevice) {
    AddEth0();
    m_fake.AddAddress("eth0:1", FakeInterfaces::kUp, "10.0.0.5", "255.0.0.0", "10.255.255.255");
    ASSERT_EQ(Ask("10.0.0.5"), 1);
    EXPECT_STREQ(m_info.szName, "eth0");
    EXPECT_EQ(m_info.nIndex, 2);
}

TEST_F(NetGetCardTest, SecondAddressOfAnInterfaceIsFound) {
    AddEth0();
    m_fake.AddAddress("eth0", FakeInterfaces::kUp, "192.168.1.6", "255.255.255.128",
                      "192.168.1.127");
    ASSERT_EQ(Ask("192.168.1.6"), 1);
    EXPECT_STREQ(m_info.szName, "eth0");
}

TEST_F(NetGetCardTest, OfTwoInterfacesWithTheAddressTheOneThatIsUpIsTaken) {
    AddEth0(kDown);
    m_fake.AddDevice("eth1", 3, FakeInterfaces::kUp, {2, 0, 0, 0, 0, 1});
    m_fake.AddAddress("eth1", FakeInterfaces::kUp, "192.168.1.5", "255.255.255.0", "");
    ASSERT_EQ(Ask("192.168.1.5"), 1);
    EXPECT_STREQ(m_info.szName, "eth1");
    EXPECT_EQ(m_info.nIndex, 3);
    EXPECT_EQ(m_info.bUsable, 1);
}

TEST_F(NetGetCardTest, OfTwoInterfacesThatAreDownTheFirstIsTaken) {
    AddEth0(kDown);
    m_fake.AddDevice("eth1", 3, kDown, {2, 0, 0, 0, 0, 1});
    m_fake.AddAddress("eth1", kDown, "192.168.1.5", "255.255.255.0", "");
    ASSERT_EQ(Ask("192.168.1.5"), 1);
    EXPECT_STREQ(m_info.szName, "eth0");
}

TEST_F(NetGetCardTest, AddressOfAPointToPointLinkIsFound) {
    m_fake.AddBareDevice("tun0", IFF_UP | IFF_POINTOPOINT);
    m_fake.AddAddress("tun0", IFF_UP | IFF_POINTOPOINT, "10.8.0.1", "255.255.255.255", "10.8.0.2");
    ASSERT_EQ(Ask("10.8.0.1"), 1);
    EXPECT_STREQ(m_info.szName, "tun0");
}

TEST_F(NetGetCardTest, DeviceWithoutHardwareAddressHasAnIndex) {
    m_fake.AddBareDevice("tun0", IFF_UP);
    m_fake.AddAddress("tun0", IFF_UP, "10.8.0.1", "255.255.255.0", "");
    ASSERT_EQ(Ask("10.8.0.1"), 1);
    EXPECT_EQ(m_info.nIndex, 77);
}

TEST_F(NetGetCardTest, DeviceOfAnotherLinkLayerHasItsIndex) {
    m_fake.AddDevice("ib0", 4, IFF_UP, {1, 2, 3, 4, 5, 6, 7, 8}, ARPHRD_INFINIBAND);
    m_fake.AddAddress("ib0", IFF_UP, "10.9.0.1", "255.255.255.0", "");
    ASSERT_EQ(Ask("10.9.0.1"), 1);
    EXPECT_EQ(m_info.nIndex, 4);
}

TEST_F(NetGetCardTest, AddressWithoutANetmaskIsFound) {
    m_fake.AddDevice("eth0", 2, FakeInterfaces::kUp, {2, 0, 0, 0, 0, 1});
    m_fake.AddAddress("eth0", FakeInterfaces::kUp, "192.168.1.5", "", "");
    ASSERT_EQ(Ask("192.168.1.5"), 1);
}

TEST_F(NetGetCardTest, LongestDeviceNameFits) {
    m_fake.AddDevice("fifteen-letters", 5, FakeInterfaces::kUp, {2, 0, 0, 0, 0, 1});
    m_fake.AddAddress("fifteen-letters", FakeInterfaces::kUp, "192.168.1.5", "255.255.255.0", "");
    ASSERT_EQ(Ask("192.168.1.5"), 1);
    EXPECT_STREQ(m_info.szName, "fifteen-letters");
}

TEST_F(NetGetCardTest, NameThatDoesNotFitIsAFailureAndNotCut) {
    m_fake.AddDevice("sixteen--letters", 5, FakeInterfaces::kUp, {2, 0, 0, 0, 0, 1});
    m_fake.AddAddress("sixteen--letters", FakeInterfaces::kUp, "192.168.1.5", "255.255.255.0", "");
    EXPECT_NE(Ask("192.168.1.5"), 1);
    ExpectUntouched();
}

TEST_F(NetGetCardTest, LabelThatNamesNoDeviceIsAFailure) {
    AddEth0();
    m_fake.AddAddress("uplink", FakeInterfaces::kUp, "10.0.0.5", "255.0.0.0", "");
    m_fake.AddAddress(":1", FakeInterfaces::kUp, "10.0.0.6", "255.0.0.0", "");
    EXPECT_NE(Ask("10.0.0.5"), 1);
    EXPECT_NE(Ask("10.0.0.6"), 1);
    ExpectUntouched();
}

TEST_F(NetGetCardTest, AddressThatNoInterfaceHasIsAFailure) {
    AddEth0();
    m_fake.AddIpv6("eth0", FakeInterfaces::kUp);
    EXPECT_NE(Ask("192.168.1.50"), 1);
    EXPECT_NE(Ask("192.168.1.255"), 1);
    ExpectUntouched();
}

TEST_F(NetGetCardTest, MachineWithoutInterfacesIsAFailure) {
    EXPECT_NE(Ask("192.168.1.5"), 1);
    ExpectUntouched();
}

TEST_F(NetGetCardTest, KernelThatDoesNotTellIsAFailure) {
    AddEth0();
    m_fake.Fail();
    EXPECT_NE(Ask("192.168.1.5"), 1);
    ExpectUntouched();
    EXPECT_EQ(m_fake.nFreed, 0);
}

TEST_F(NetGetCardTest, ListIsGivenBack) {
    AddEth0();
    Ask("192.168.1.5");
    Ask("192.168.1.50");
    EXPECT_EQ(m_fake.nGiven, 2);
    EXPECT_EQ(m_fake.nFreed, 2);
}

TEST_F(NetGetCardTest, TextThatIsNoDottedQuadIsAFailure) {
    AddEth0();
    const std::string invalid[] = {"",
                                   "192.168.1",
                                   "192.168.1.5 ",
                                   " 192.168.1.5",
                                   "192.168.1.5\n",
                                   "192.168.1.05",
                                   "192.168.001.5",
                                   "0xc0.168.1.5",
                                   "3232235781",
                                   "192.168.1.5.6",
                                   "192.168.1.256",
                                   "+192.168.1.5",
                                   "192..168.1.5",
                                   "::ffff:192.168.1.5",
                                   "eth0",
                                   std::string("192.168.1.5\0", 12),
                                   std::string(100'000, '1')};
    for (const std::string& text : invalid) {
        EXPECT_NE(Ask(text), 1) << text.substr(0, 40);
    }
    ExpectUntouched();
}

TEST(NetGetCardRealTest, LoopbackIsFoundOnThisMachine) {
    _tag_NETINFO_ info;
    ASSERT_EQ(SDKFuncData::NetGetCard1("127.0.0.1", info), 1);
    EXPECT_STREQ(info.szName, "lo");
    EXPECT_EQ(info.nIndex, static_cast<int>(if_nametoindex("lo")));
    EXPECT_EQ(info.bUsable, 1);
}

}  // namespace
