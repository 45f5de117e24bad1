#include "finder/machine/portowner.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/inet_diag.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>

#include <cerrno>

#include "tests/unit/support/fakenetlink.h"
#include "tests/unit/support/scratchfolder.h"

using namespace Lanscout;
using FakeNetlink::Built;

namespace {

struct UdpSocket {
    const char* address = "192.168.1.2";
    int port = 3702;
    unsigned int inode = 4711;
    unsigned int uid = 1000;
    int ipv6Only = -1;  // not told
};

int FamilyOf(const UdpSocket& socket) {
    return std::string(socket.address).find(':') == std::string::npos ? AF_INET : AF_INET6;
}

std::string Message(const UdpSocket& socket) {
    Built message(SOCK_DIAG_BY_FAMILY);
    auto* const header = static_cast<inet_diag_msg*>(message.Extra(sizeof(inet_diag_msg)));
    header->idiag_family = static_cast<unsigned char>(FamilyOf(socket));
    header->id.idiag_sport = htons(static_cast<std::uint16_t>(socket.port));
    inet_pton(FamilyOf(socket), socket.address, &header->id.idiag_src[0]);
    header->idiag_uid = socket.uid;
    header->idiag_inode = socket.inode;
    if (socket.ipv6Only >= 0) {
        message.With(INET_DIAG_SKV6ONLY, std::string(1, static_cast<char>(socket.ipv6Only)));
    }
    return message.Answering().Bytes();
}

void AddProcess(const ScratchFolder& proc, const std::string& pid, const std::string& name,
                const std::string& inode) {
    proc.Write(pid + "/comm", name + "\n");
    std::filesystem::create_directory(proc.Path() / pid / "fd");
    std::filesystem::create_symlink("socket:[" + inode + "]", proc.Path() / pid / "fd" / "3");
}

// A machine with these sockets and two processes, one of which has the socket 4711.
class PortOwnerTest : public testing::Test {
protected:
    PortOwnerTest() {
        AddProcess(m_proc, "77", "other", "1");
        AddProcess(m_proc, "812", "wsdd", "4711");
    }

    std::optional<PortOwner> Find(const std::vector<UdpSocket>& sockets,
                                  const std::string& address = "192.168.1.2") {
        auto& kernel = FakeNetlink::Current();
        kernel.onRequest = [&kernel, sockets] {
            const char family = kernel.requests.back()[sizeof(nlmsghdr)];
            for (const UdpSocket& socket : sockets) {
                if (FamilyOf(socket) == family) {
                    kernel.datagrams.push_back(Message(socket));
                }
            }
            kernel.Done();
        };
        return FindUdpPortOwner(address, 3702, m_proc.Path());
    }

    FakeNetlink::Scope m_scope;
    ScratchFolder m_proc;
};

}  // namespace

TEST_F(PortOwnerTest, ProcessIsNamed) {
    const auto owner = Find({{}});
    ASSERT_TRUE(owner);
    EXPECT_EQ(owner->pid, 812);
    EXPECT_EQ(owner->uid, 1000U);
    EXPECT_EQ(PortOwnerText(owner), "wsdd (process 812)");
    EXPECT_EQ(FakeNetlink::Current().open, 0);
}

TEST_F(PortOwnerTest, OtherAddressAndOtherPortDoNotCount) {
    EXPECT_FALSE(Find({{.address = "192.168.1.3"}, {.port = 3703}, {.address = "fe80::1"}}));
}

TEST_F(PortOwnerTest, OneOfSeveralSocketsIsInTheWay) {
    EXPECT_EQ(Find({{.port = 53, .inode = 1}, {}, {.port = 54, .inode = 1}})->pid, 812);
}

TEST_F(PortOwnerTest, WildcardsCount) {
    EXPECT_TRUE(Find({{.address = "0.0.0.0"}}));
    EXPECT_TRUE(Find({{.address = "::"}}));
    EXPECT_TRUE(Find({{.address = "::", .ipv6Only = 0}}));
}

TEST_F(PortOwnerTest, SocketForIpv6OnlyIsInNobodysWay) {
    EXPECT_FALSE(Find({{.address = "::", .ipv6Only = 1}}));
}

TEST_F(PortOwnerTest, Ipv6SocketAtAnIpv4AddressCounts) {
    EXPECT_TRUE(Find({{.address = "::ffff:192.168.1.2"}}));
    EXPECT_FALSE(Find({{.address = "::ffff:192.168.1.3"}}));
}

TEST_F(PortOwnerTest, EveryAddressIsInTheWildcardsWay) {
    EXPECT_EQ(Find({{}}, "0.0.0.0")->pid, 812);
    EXPECT_TRUE(Find({{.address = "::"}}, "0.0.0.0"));
    EXPECT_FALSE(Find({{.address = "fe80::1"}}, "0.0.0.0"));
}

TEST_F(PortOwnerTest, UserIsNamedWhereTheProcessMayNotBeSeen) {
    const auto owner = Find({{.inode = 4712, .uid = 0}});
    ASSERT_TRUE(owner);
    EXPECT_EQ(PortOwnerText(owner), "a process of user root (run as root to see which)");
}

TEST_F(PortOwnerTest, MessageCutAtAnyByteDoesNoHarm) {
    auto& kernel = FakeNetlink::Current();
    for (std::size_t size = 1; size < sizeof(nlmsghdr) + sizeof(inet_diag_msg); ++size) {
        kernel.onRequest = [&] { kernel.datagrams.push_back(Message({}).substr(0, size)); };
        EXPECT_FALSE(FindUdpPortOwner("192.168.1.2", 3702, m_proc.Path())) << size;
    }
}

TEST_F(PortOwnerTest, NobodyIsFoundWhereTheKernelCannotTell) {
    FakeNetlink::Current().onRequest = [] { FakeNetlink::Current().Refuses(ENOENT); };
    EXPECT_FALSE(FindUdpPortOwner("192.168.1.2", 3702, m_proc.Path()));
    FakeNetlink::Current().openError = EAFNOSUPPORT;
    EXPECT_FALSE(FindUdpPortOwner("192.168.1.2", 3702, m_proc.Path()));
    EXPECT_EQ(PortOwnerText(std::nullopt), "another process");
}

TEST_F(PortOwnerTest, ProcessNamesAreMadeValidText) {
    const ScratchFolder proc;
    AddProcess(proc, "5",
               "\xFF"
               "bad",
               "4713");
    auto& kernel = FakeNetlink::Current();
    kernel.onRequest = [&] {
        kernel.datagrams.push_back(Message({.inode = 4713}));
        kernel.Done();
    };
    EXPECT_EQ(FindUdpPortOwner("192.168.1.2", 3702, proc.Path())->name,
              "\uFFFD"
              "bad");
}
