#include "tools/lanscout-sim/network/loopbacknetwork.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tools/lanscout-sim/base/setuperror.h"

using lansim::Datagram;
using lansim::Descriptor;
using lansim::Endpoint;
using lansim::LoopbackNetwork;
using lansim::SendResult;
using lansim::SimulatedHost;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

namespace {

// An address that other test processes of this run do not use.
std::string OwnAddress(int host) {
    const int pid = getpid();
    return "127." + std::to_string(100 + pid / 256 % 100) + "." + std::to_string(pid % 256) + "." +
           std::to_string(host);
}

std::vector<SimulatedHost> OneCamera() {
    return {{*lansim::ParseIpv4(OwnAddress(10)), {}, true, true, {lansim::kDiscoveryPort}}};
}

class Searcher {
public:
    Searcher() : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        const auto address = ToSockaddr(m_own);
        EXPECT_EQ(bind(m_fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }

    void Send(const Endpoint& to, const std::string& text) const {
        const auto address = ToSockaddr(to);
        EXPECT_EQ(sendto(m_fd.Get(), text.data(), text.size(), 0,
                         reinterpret_cast<const sockaddr*>(&address), sizeof address),
                  static_cast<ssize_t>(text.size()));
    }

    std::string Receive() const {
        std::string buffer(100, '\0');
        const auto size = recv(m_fd.Get(), buffer.data(), buffer.size(), 0);
        return buffer.substr(0, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    }

    Endpoint m_own{*lansim::ParseIpv4(OwnAddress(1)), lansim::kDiscoveryPort};

private:
    Descriptor m_fd;
};

// Others on this machine may multicast on lo as well, so only the awaited text counts.
Datagram Await(LoopbackNetwork& network, const std::string& text) {
    Datagram found;
    pollfd ready{network.Descriptor(), POLLIN, 0};
    while (found.payload != text && poll(&ready, 1, 5000) == 1) {
        network.Receive([&](const Datagram& datagram) {
            if (datagram.payload == text) {
                found = datagram;
            }
        });
    }
    return found;
}

TEST(SimLoopbackNetwork, MulticastFromAnAddressOf127ArrivesBesideASearcherOnTheSamePort) {
    const auto cameras = OneCamera();
    LoopbackNetwork network(cameras, nullptr);
    const Searcher searcher;
    const std::string text = "probe of " + OwnAddress(1);
    searcher.Send({lansim::kMulticastGroup, lansim::kDiscoveryPort}, text);
    const Datagram datagram = Await(network, text);
    EXPECT_EQ(datagram.payload, text);
    EXPECT_EQ(datagram.from, searcher.m_own);
    EXPECT_EQ(datagram.to.ip, lansim::kMulticastGroup);
}

TEST(SimLoopbackNetwork, UnicastToACameraNamesTheCamera) {
    const auto cameras = OneCamera();
    LoopbackNetwork network(cameras, nullptr);
    const Searcher searcher;
    searcher.Send({cameras[0].ip, lansim::kDiscoveryPort}, "direct");
    EXPECT_EQ(Await(network, "direct").to.ip, cameras[0].ip);
}

TEST(SimLoopbackNetwork, ReplyComesFromTheCamerasAddress) {
    const auto cameras = OneCamera();
    LoopbackNetwork network(cameras, nullptr);
    const Searcher searcher;
    EXPECT_EQ(network.Send({{cameras[0].ip, lansim::kDiscoveryPort}, searcher.m_own, "reply"}),
              SendResult::Sent);
    EXPECT_EQ(searcher.Receive(), "reply");
}

TEST(SimLoopbackNetwork, NobodySendsFromAnUnknownAddress) {
    const auto cameras = OneCamera();
    LoopbackNetwork network(cameras, nullptr);
    EXPECT_EQ(network.Send({{*lansim::ParseIpv4("127.1.2.3"), 3702}, {cameras[0].ip, 3702}, "x"}),
              SendResult::Failed);
}

TEST(SimLoopbackNetwork, TakenAddressIsNamed) {
    const auto cameras = OneCamera();
    const LoopbackNetwork first(cameras, nullptr);
    EXPECT_THAT([&] { LoopbackNetwork second(cameras, nullptr); },
                ThrowsMessage<lansim::SetupError>(HasSubstr(OwnAddress(10) + " port 3702")));
}

}  // namespace
