// What is read from /proc: who holds a port, and the kernel's neighbours.
#include <gtest/gtest.h>
#include <unistd.h>

#include "finder/machine/arpcache.h"
#include "finder/machine/portowner.h"
#include "tests/unit/support/scratchfolder.h"

using namespace Lanscout;

namespace {

constexpr char kHeading[] =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout "
    "inode ref pointer drops\n";
// 192.168.1.2:3702, inode 4711, user 1000
constexpr char kSocket[] =
    "  12: 0201A8C0:0E76 00000000:0000 07 00000000:00000000 00:00000000 00000000  1000        0 "
    "4711 2 0000000000000000 0\n";
constexpr char kWildcard6[] =
    "  12: 00000000000000000000000000000000:0E76 00000000000000000000000000000000:0000 07 "
    "00000000:00000000 00:00000000 00000000     0        0 4712 2 0000000000000000 0\n";

void AddProcess(const ScratchFolder& proc, const std::string& pid, const std::string& name,
                const std::string& inode) {
    proc.Write(pid + "/comm", name + "\n");
    std::filesystem::create_directory(proc.Path() / pid / "fd");
    std::filesystem::create_symlink("socket:[" + inode + "]", proc.Path() / pid / "fd" / "3");
}

constexpr char kNeighbours[] =
    "IP address       HW type     Flags       HW address            Mask     Device\n"
    "10.0.0.7         0x1         0x2         00:1b:ff:01:02:0a     *        eth0\n"
    "10.0.0.8         0x1         0x0         00:00:00:00:00:00     *        eth0\n";

}  // namespace

TEST(PortOwner, ProcessIsNamed) {
    const ScratchFolder proc;
    proc.Write("net/udp", std::string(kHeading) + kSocket);
    AddProcess(proc, "77", "other", "1");
    AddProcess(proc, "812", "wsdd", "4711");
    const auto owner = FindUdpPortOwner("192.168.1.2", 3702, proc.Path());
    ASSERT_TRUE(owner);
    EXPECT_EQ(owner->pid, 812);
    EXPECT_EQ(PortOwnerText(owner), "wsdd (process 812)");
}

TEST(PortOwner, OtherAddressAndOtherPortDoNotCount) {
    const ScratchFolder proc;
    proc.Write("net/udp", std::string(kHeading) + kSocket);
    EXPECT_FALSE(FindUdpPortOwner("192.168.1.3", 3702, proc.Path()));
    EXPECT_FALSE(FindUdpPortOwner("192.168.1.2", 3703, proc.Path()));
}

TEST(PortOwner, WildcardOfIpv6Counts) {
    const ScratchFolder proc;
    proc.Write("net/udp", kHeading);
    proc.Write("net/udp6", std::string(kHeading) + kWildcard6);
    AddProcess(proc, "9", "discoveryd", "4712");
    EXPECT_EQ(FindUdpPortOwner("192.168.1.2", 3702, proc.Path())->name, "discoveryd");
}

TEST(PortOwner, EveryAddressIsInTheWildcardsWay) {
    const ScratchFolder proc;
    proc.Write("net/udp", std::string(kHeading) + kSocket);
    AddProcess(proc, "812", "wsdd", "4711");
    EXPECT_EQ(FindUdpPortOwner("0.0.0.0", 3702, proc.Path())->pid, 812);
}

TEST(PortOwner, UserIsNamedWhereTheProcessMayNotBeSeen) {
    const ScratchFolder proc;
    proc.Write("net/udp6", std::string(kHeading) + kWildcard6);
    const auto owner = FindUdpPortOwner("192.168.1.2", 3702, proc.Path());
    ASSERT_TRUE(owner);
    EXPECT_EQ(PortOwnerText(owner), "a process of user root (run as root to see which)");
}

TEST(PortOwner, NobodyIsFoundWithoutProc) {
    const ScratchFolder proc;
    EXPECT_FALSE(FindUdpPortOwner("192.168.1.2", 3702, proc.Path()));
    EXPECT_EQ(PortOwnerText(std::nullopt), "another process");
}

TEST(ArpCache, NeighbourIsFoundInUpperCase) {
    const ScratchFolder folder;
    const auto table = folder.Write("arp", kNeighbours);
    EXPECT_EQ(MacFromArpCache("10.0.0.7", "eth0", table), "00:1B:FF:01:02:0A");
}

TEST(ArpCache, IncompleteAndForeignEntriesDoNotCount) {
    const ScratchFolder folder;
    const auto table = folder.Write("arp", kNeighbours);
    EXPECT_EQ(MacFromArpCache("10.0.0.8", "eth0", table), "");
    EXPECT_EQ(MacFromArpCache("10.0.0.7", "eth1", table), "");
    EXPECT_EQ(MacFromArpCache("10.0.0.7", "eth0", folder.Path() / "none"), "");
}
