#include "tools/lanscout-sim/upnp/descriptionserver.h"

#include <gmock/gmock.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tools/lanscout-sim/base/setuperror.h"

using lansim::DescriptionServer;
using lansim::Descriptor;
using lansim::Endpoint;
using lansim::Misbehaviour;
using lansim::TimePoint;
using lansim::ToSockaddr;
using lansim::ToText;
using lansim::UpnpDevice;
using std::chrono::seconds;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

constexpr TimePoint kStart{};
constexpr const char* kRequest = "GET /description.xml HTTP/1.1\r\nHost: x\r\n\r\n";

// The devices' server and a client in one thread, on an address of this process's own.
class SimDescriptionServer : public ::testing::Test {
protected:
    SimDescriptionServer() {
        m_devices[0].name = "TV";
        m_devices[0].uuid = "11111111-2222-4333-8444-555555555555";
        const auto pid = static_cast<std::uint32_t>(getpid());
        m_devices[0].ip = lansim::Ipv4{0x7F900000 + (pid & 0xFFFF)};
        m_devices[0].port = 49152;
    }

    void Start(std::set<Misbehaviour> misbehaviours = {}) {
        m_devices[0].misbehaviours = std::move(misbehaviours);
        m_server = std::make_unique<DescriptionServer>(m_devices);
        m_server->Listen({m_devices[0].ip, m_devices[0].port});
        m_client = Descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const auto address = ToSockaddr({m_devices[0].ip, m_devices[0].port});
        ASSERT_EQ(
            connect(m_client.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            0);
    }

    void Ask(const std::string& request) const {
        ASSERT_EQ(send(m_client.Get(), request.data(), request.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(request.size()));
    }

    // Lets the server work until the client has the text, or the connection is over, or `limit`
    // bytes have come. Waits for events only, so it takes no longer than the work does.
    std::string ReceiveUntil(const std::string& awaited, std::size_t limit = 1 << 20) {
        std::string received;
        for (int i = 0; i < 20000 && received.size() < limit; ++i) {
            pollfd ready{m_server->Descriptor(), POLLIN, 0};
            poll(&ready, 1, received.empty() ? 100 : 0);
            m_server->Run(kStart);
            std::array<char, 65536> buffer{};
            const auto size = recv(m_client.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
            if (size == 0 || (size < 0 && errno != EAGAIN)) {
                m_lastError = size < 0 ? errno : 0;
                return received;
            }
            if (size > 0) {
                received.append(buffer.data(), static_cast<std::size_t>(size));
            }
            if (!awaited.empty() && received.find(awaited) != std::string::npos) {
                return received;
            }
        }
        return received;
    }

    std::deque<UpnpDevice> m_devices{1};
    std::unique_ptr<DescriptionServer> m_server;
    Descriptor m_client;
    int m_lastError = 0;
};

TEST_F(SimDescriptionServer, ServesTheDescriptionWithItsLength) {
    Start();
    Ask(kRequest);
    const std::string answer = ReceiveUntil("</root>\n");
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(answer, HasSubstr("Content-Length: " +
                                  std::to_string(DescriptionOf(m_devices[0]).size()) + "\r\n"));
    EXPECT_THAT(answer, EndsWith("\r\n\r\n" + DescriptionOf(m_devices[0])));
    EXPECT_EQ(m_devices[0].descriptionsServed, 1U);
}

TEST_F(SimDescriptionServer, OtherPathsAreNotFound) {
    Start();
    Ask("GET /else HTTP/1.1\r\nHost: x\r\n\r\n");
    EXPECT_THAT(ReceiveUntil("not found\n"), StartsWith("HTTP/1.1 404 "));
}

TEST_F(SimDescriptionServer, NotFoundDeviceHasNoDescription) {
    Start({Misbehaviour::UpnpDescriptionNotFound});
    Ask(kRequest);
    EXPECT_THAT(ReceiveUntil("not found\n"), StartsWith("HTTP/1.1 404 "));
}

TEST_F(SimDescriptionServer, RedirectLeavesTheSubnet) {
    Start({Misbehaviour::UpnpDescriptionRedirect});
    Ask(kRequest);
    const std::string answer = ReceiveUntil("\r\n\r\n");
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 302 "));
    EXPECT_THAT(answer, HasSubstr("\r\nLocation: http://203.0.113.7/description.xml\r\n"));
}

TEST_F(SimDescriptionServer, ChunkedAnswerHasNoLengthAndMoreThanOneChunk) {
    Start({Misbehaviour::UpnpDescriptionChunked});
    Ask(kRequest);
    const std::string answer = ReceiveUntil("\r\n0\r\n\r\n");
    EXPECT_THAT(answer, HasSubstr("Transfer-Encoding: chunked"));
    EXPECT_THAT(answer, Not(HasSubstr("Content-Length")));
    EXPECT_THAT(answer, Not(HasSubstr(DescriptionOf(m_devices[0])))) << "all in one chunk";
}

TEST_F(SimDescriptionServer, EmptyDescriptionIsAnEmptyBody) {
    Start({Misbehaviour::UpnpDescriptionEmpty});
    Ask(kRequest);
    const std::string answer = ReceiveUntil("\r\n\r\n");
    EXPECT_THAT(answer, HasSubstr("Content-Length: 0\r\n"));
    EXPECT_THAT(answer, EndsWith("\r\n\r\n"));
}

TEST_F(SimDescriptionServer, HugeDescriptionPromises64MiBAndDelivers) {
    Start({Misbehaviour::UpnpDescriptionHuge});
    Ask(kRequest);
    const std::string answer = ReceiveUntil("", 3 << 20);
    EXPECT_THAT(answer.substr(0, 300), HasSubstr("Content-Length: 67108864\r\n"));
    EXPECT_GE(answer.size(), 3U << 20);
}

TEST_F(SimDescriptionServer, LyingLengthPromises2147483647AndEndsEarly) {
    Start({Misbehaviour::UpnpDescriptionLyingLength});
    Ask(kRequest);
    const std::string answer = ReceiveUntil("");
    EXPECT_THAT(answer, HasSubstr("Content-Length: 2147483647\r\n"));
    EXPECT_THAT(answer, EndsWith("</root>\n"));
    EXPECT_EQ(m_lastError, 0);
}

TEST_F(SimDescriptionServer, ResetComesInTheMiddle) {
    Start({Misbehaviour::UpnpDescriptionReset});
    Ask(kRequest);
    const std::string answer = ReceiveUntil("");
    EXPECT_THAT(answer, Not(HasSubstr("</root>")));
    EXPECT_EQ(m_lastError, ECONNRESET);
}

TEST_F(SimDescriptionServer, SlowDescriptionComesAByteASecond) {
    Start({Misbehaviour::UpnpDescriptionSlow});
    Ask(kRequest);
    const std::string first = ReceiveUntil("\r\n\r\n<");
    EXPECT_THAT(first, EndsWith("\r\n\r\n<"));
    ASSERT_EQ(m_server->NextDue(kStart), kStart + seconds(1));
    m_server->Run(kStart + std::chrono::milliseconds(999));
    char byte = 0;
    EXPECT_EQ(recv(m_client.Get(), &byte, 1, MSG_DONTWAIT), -1);
    m_server->Run(kStart + seconds(1));
    EXPECT_EQ(recv(m_client.Get(), &byte, 1, 0), 1);
    EXPECT_EQ(byte, '?');
}

TEST_F(SimDescriptionServer, RequestWithoutEndIsGivenUp) {
    Start({Misbehaviour::UpnpDescriptionSlow});
    Ask(std::string(10000, 'x'));
    ReceiveUntil("");
    EXPECT_EQ(m_lastError, ECONNRESET) << "closed with bytes unread";
}

TEST_F(SimDescriptionServer, TakenPortIsNamed) {
    Start();
    EXPECT_THAT(
        [&] {
            m_server->Listen({m_devices[0].ip, m_devices[0].port});
        },
        ::testing::ThrowsMessage<lansim::SetupError>(
            HasSubstr(ToText(m_devices[0].ip) + " port 49152: Address already in use")));
}

}  // namespace
