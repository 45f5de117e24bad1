#include <gtest/gtest.h>

#include <string>

#include "host/zelnet.h"
#include "tests/unit/support/fakeinterfaces.h"

namespace {

class SameSubnetTest : public ::testing::Test {
protected:
    void Add(const char* ip, const char* netmask) {
        m_fake.AddAddress("eth0", FakeInterfaces::kUp, ip, netmask, "");
    }

    FakeInterfaces m_fake;
};

TEST_F(SameSubnetTest, NetmaskOfTheLocalAddressDecides) {
    Add("192.168.1.5", "255.255.255.0");
    EXPECT_TRUE(IsSameSubnet("192.168.1.20", "192.168.1.5"));
    EXPECT_TRUE(IsSameSubnet("192.168.1.255", "192.168.1.5"));
    EXPECT_FALSE(IsSameSubnet("192.168.2.20", "192.168.1.5"));
    EXPECT_FALSE(IsSameSubnet("192.169.1.20", "192.168.1.5"));
}

TEST_F(SameSubnetTest, NetmaskNeedNotEndAtAByte) {
    Add("10.1.2.66", "255.255.255.192");
    EXPECT_TRUE(IsSameSubnet("10.1.2.64", "10.1.2.66"));
    EXPECT_TRUE(IsSameSubnet("10.1.2.127", "10.1.2.66"));
    EXPECT_FALSE(IsSameSubnet("10.1.2.63", "10.1.2.66"));
    EXPECT_FALSE(IsSameSubnet("10.1.2.128", "10.1.2.66"));
}

TEST_F(SameSubnetTest, EitherAddressMayBeTheLocalOne) {
    Add("192.168.1.5", "255.255.255.0");
    EXPECT_TRUE(IsSameSubnet("192.168.1.5", "192.168.1.20"));
    EXPECT_FALSE(IsSameSubnet("192.168.1.5", "192.168.2.20"));
}

TEST_F(SameSubnetTest, AddressIsInItsOwnSubnet) {
    Add("192.168.1.5", "255.255.255.255");
    EXPECT_TRUE(IsSameSubnet("192.168.1.5", "192.168.1.5"));
    EXPECT_FALSE(IsSameSubnet("192.168.1.4", "192.168.1.5"));
}

TEST_F(SameSubnetTest, WhereNeitherAddressIsLocalTheAnswerIsNo) {
    Add("192.168.1.5", "255.255.255.0");
    EXPECT_FALSE(IsSameSubnet("192.168.1.20", "192.168.1.21"));
    EXPECT_FALSE(IsSameSubnet("192.168.1.20", "192.168.1.20"));
}

TEST_F(SameSubnetTest, RightOneOfSeveralInterfacesIsTaken) {
    Add("10.0.0.5", "255.0.0.0");
    Add("192.168.1.5", "255.255.255.0");
    EXPECT_FALSE(IsSameSubnet("192.168.2.20", "192.168.1.5"));
    EXPECT_TRUE(IsSameSubnet("10.200.0.1", "10.0.0.5"));
}

TEST_F(SameSubnetTest, AddressOnTwoInterfacesHasBothSubnets) {
    Add("192.168.1.5", "255.255.255.255");
    Add("192.168.1.5", "255.255.255.0");
    EXPECT_TRUE(IsSameSubnet("192.168.1.20", "192.168.1.5"));
}

TEST_F(SameSubnetTest, LoopbackIsNotInTheSubnetOfANetworkCard) {
    Add("127.0.0.1", "255.0.0.0");
    Add("192.168.1.5", "255.255.255.0");
    EXPECT_FALSE(IsSameSubnet("127.0.0.1", "192.168.1.5"));
    EXPECT_FALSE(IsSameSubnet("127.0.0.9", "192.168.1.5"));
    EXPECT_FALSE(IsSameSubnet("0.0.0.0", "192.168.1.5"));
}

TEST_F(SameSubnetTest, EntriesOfOtherKindsArePassedOver) {
    m_fake.AddBareDevice("tun0", IFF_UP);
    m_fake.AddDevice("eth0", 2, IFF_UP, {2, 0, 0, 0, 0, 1});
    m_fake.AddIpv6("eth0", IFF_UP);
    Add("192.168.1.5", "");
    EXPECT_FALSE(IsSameSubnet("192.168.1.20", "192.168.1.5"));
    Add("192.168.1.5", "255.255.255.0");
    EXPECT_TRUE(IsSameSubnet("192.168.1.20", "192.168.1.5"));
}

TEST_F(SameSubnetTest, KernelThatDoesNotTellMeansNo) {
    Add("192.168.1.5", "255.255.255.0");
    m_fake.Fail();
    EXPECT_FALSE(IsSameSubnet("192.168.1.20", "192.168.1.5"));
}

TEST_F(SameSubnetTest, ListIsGivenBack) {
    Add("192.168.1.5", "255.255.255.0");
    IsSameSubnet("192.168.1.20", "192.168.1.5");
    EXPECT_EQ(m_fake.nFreed, m_fake.nGiven);
    EXPECT_EQ(m_fake.nGiven, 1);
}

TEST_F(SameSubnetTest, NothingButADottedQuadIsAnAddress) {
    Add("192.168.1.5", "255.255.255.0");
    const std::string invalid[] = {"",
                                   "192.168.1",
                                   "192.168.276",    // a short form that other parsers take
                                   "192.168.1.024",  // octal to some, decimal to others
                                   "192.168.1.0x14",
                                   "3232235796",
                                   "192.168.1.20 ",
                                   " 192.168.1.20",
                                   "\t192.168.1.20",
                                   "192.168.1.20\r\n",
                                   "192.168.1.20/24",
                                   "192.168.1.20:80",
                                   "192.168.1.20/path",
                                   "user@192.168.1.20",
                                   "192.168.1.300",
                                   "192.168.1.-20",
                                   "192.168.1.",
                                   ".192.168.1.20",
                                   "::ffff:192.168.1.20",
                                   "localhost",
                                   std::string("192.168.1.20\0x", 14)};
    for (const std::string& text : invalid) {
        EXPECT_FALSE(IsSameSubnet(text, "192.168.1.5")) << text;
        EXPECT_FALSE(IsSameSubnet("192.168.1.5", text)) << text;
    }
}

TEST(SameSubnetRealTest, LoopbackHasItsSubnetOnThisMachine) {
    EXPECT_TRUE(IsSameSubnet("127.0.0.1", "127.77.0.1"));
    EXPECT_TRUE(IsSameSubnet("127.77.0.1", "127.0.0.1"));
    EXPECT_FALSE(IsSameSubnet("128.0.0.1", "127.0.0.1"));
}

}  // namespace
