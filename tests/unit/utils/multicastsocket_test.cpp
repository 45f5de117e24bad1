// The search's socket: how it is set up, how a Probe leaves it and how replies are gathered.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/support/expectedlog.h"
#include "tests/unit/support/fakesystem.h"
#include "tests/unit/support/opensearch.h"
#include "tests/unit/support/recordinghost.h"

namespace {

using RecordingHost::IsLine;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr bool kBounded = LANSCOUT_BOUNDED != 0;
constexpr int kSocket = 1'000'001;

// A socket address with its padding, as it was handed over.
struct SeenAddress {
    SeenAddress(const sockaddr* address, socklen_t length) : nLength(length) {
        memcpy(&in, address, sizeof(in));
    }

    std::string Text() const {
        char ip[INET_ADDRSTRLEN];
        inet_ntop(AF_INET, &in.sin_addr, ip, sizeof(ip));
        const bool padded =
            std::string(8, '\0') == std::string(reinterpret_cast<const char*>(in.sin_zero), 8);
        return std::to_string(in.sin_family) + " " + ip + ":" + std::to_string(ntohs(in.sin_port)) +
               " " + std::to_string(nLength) + (padded ? "" : " padding not zero");
    }

    sockaddr_in in;
    socklen_t nLength;
};

class MulticastSocket : public testing::Test {
protected:
    MulticastSocket() : m_search((RecordingHost::Reset(), "192.168.1.2"), 5) {}

    int Prepare(OpenSearch& search) {
        int sock = kSocket;
        const int result = search.SetupSocketParam(sock);
        EXPECT_EQ(sock, kSocket);
        return result;
    }

    FakeSystem::Scope m_scope;
    OpenSearch m_search;
};

using SocketSetUp = MulticastSocket;

class SetUpCalls {
public:
    SetUpCalls() {
        FakeSystem::Calls& calls = FakeSystem::Current();
        calls.bind = [this](int fd, const sockaddr* address, socklen_t length) {
            m_seen.push_back("bind " + std::to_string(fd) + " " +
                             SeenAddress(address, length).Text());
            errno = m_bindError;
            return m_bindError == 0 ? 0 : -1;
        };
        calls.setsockopt = [this](int fd, int level, int name, const void* value,
                                  socklen_t length) {
            timeval time{};
            EXPECT_EQ(length, sizeof(time));
            memcpy(&time, value, sizeof(time));
            EXPECT_EQ(level, SOL_SOCKET);
            EXPECT_EQ(name, SO_RCVTIMEO);
            m_seen.push_back("timeout " + std::to_string(fd) + " " + std::to_string(time.tv_sec) +
                             "s " + std::to_string(time.tv_usec) + "us");
            errno = m_optionError;
            return m_optionError == 0 ? 0 : -1;
        };
    }

    std::vector<std::string> m_seen;
    int m_bindError = 0;
    int m_optionError = 0;
};

TEST_F(SocketSetUp, BindsToOwnAddressThenSetsTimeoutAndNothingElse) {
    const SetUpCalls calls;
    RecordingHost::SetLogLevel(4);
    EXPECT_EQ(Prepare(m_search), 0);
    EXPECT_THAT(calls.m_seen,
                ElementsAre("bind 1000001 2 192.168.1.2:3702 16", "timeout 1000001 3s 0us"));
    EXPECT_THAT(RecordingHost::LogLines(), IsEmpty());
}

TEST_F(SocketSetUp, InvalidAddressIsLoggedAndNothingBound) {
    for (const std::string text : {"0.0.0.300", "", "camera", "192.168.1.2.3"}) {
        const SetUpCalls calls;
        OpenSearch search(text, 5);
        RecordingHost::Reset();
        EXPECT_EQ(Prepare(search), -1) << text;
        EXPECT_THAT(RecordingHost::LogLines(),
                    ElementsAre(IsLine(3, "SetupSocketParam", "Invalid IP address: %s\n",
                                       "Invalid IP address: " + text + "\n")));
        EXPECT_THAT(calls.m_seen, IsEmpty());
    }
}

TEST_F(SocketSetUp, FailedBindIsLoggedWithItsNumberAndSetsNoTimeout) {
    SetUpCalls calls;
    calls.m_bindError = EADDRINUSE;
    EXPECT_EQ(Prepare(m_search), -1);
    EXPECT_THAT(RecordingHost::LogLines(),
                ElementsAre(IsLine(3, "SetupSocketParam", "Bind socket failed. [%d]\n",
                                   "Bind socket failed. [98]\n")));
    EXPECT_EQ(calls.m_seen.size(), 1U);
}

TEST_F(SocketSetUp, FailedTimeoutIsLogged) {
    SetUpCalls calls;
    calls.m_optionError = ENOMEM;
    EXPECT_EQ(Prepare(m_search), -1);
    EXPECT_THAT(RecordingHost::LogLines(),
                ElementsAre(IsLine(3, "SetupSocketParam", "Set recv timeout failed.\n")));
}

TEST_F(SocketSetUp, SocketStaysOpenOnFailure) {
    SetUpCalls calls;
    calls.m_bindError = EADDRINUSE;
    int closed = 0;
    FakeSystem::Current().close = [&](int) { return ++closed; };
    Prepare(m_search);
    EXPECT_EQ(closed, 0);
}

using Sending = MulticastSocket;

class SendCalls {
public:
    explicit SendCalls(ssize_t shortBy = 0, int error = 0) {
        FakeSystem::Current().sendto = [this, shortBy, error](int fd, const void* data, size_t size,
                                                              int flags, const sockaddr* address,
                                                              socklen_t length) {
            EXPECT_EQ(fd, kSocket);
            EXPECT_EQ(flags, 0);
            m_messages.emplace_back(static_cast<const char*>(data), size);
            m_targets.push_back(SeenAddress(address, length).Text());
            errno = error;
            return error == 0 ? static_cast<ssize_t>(size) - shortBy : -1;
        };
    }

    std::vector<std::string> m_messages;
    std::vector<std::string> m_targets;
};

TEST_F(Sending, WholeProbeGoesToTheGroupOnce) {
    const SendCalls calls;
    RecordingHost::SetLogLevel(4);
    EXPECT_EQ(m_search.SendProbeMessage(kSocket, ONVIF_PROBE_NVT), 0);
    EXPECT_EQ(m_search.SendProbeMessage(kSocket, ONVIF_PROBE_DEVICE), 0);
    const std::string target = "2 239.255.255.250:3702 16";
    EXPECT_THAT(calls.m_targets, ElementsAre(target, target));
    ASSERT_EQ(calls.m_messages.size(), 2U);
    EXPECT_EQ(calls.m_messages[0].size(), 853U);
    EXPECT_EQ(calls.m_messages[1].size(), 837U);
    EXPECT_NE(calls.m_messages[0].find("<Types>dn:NetworkVideoTransmitter</Types>"),
              std::string::npos);
    EXPECT_NE(calls.m_messages[1].find("<Types>tds:Device</Types>"), std::string::npos);
    EXPECT_TRUE(calls.m_messages[0].ends_with("</Envelope>"));  // no terminating zero byte
    EXPECT_THAT(RecordingHost::LogLines(), IsEmpty());
}

TEST_F(Sending, FailedSendIsLoggedWithItsNumberAndNotRepeated) {
    const SendCalls calls(0, ENETUNREACH);
    EXPECT_EQ(m_search.SendProbeMessage(kSocket, ONVIF_PROBE_NVT), -1);
    EXPECT_THAT(RecordingHost::LogLines(),
                ElementsAre(IsLine(3, "SendProbeMessage", "Send probe message failed. [%d]\n",
                                   "Send probe message failed. [101]\n")));
    EXPECT_EQ(calls.m_messages.size(), 1U);
}

TEST_F(Sending, ErrorNumberSurvivesTheLogGate) {
    struct {
        ZelDbgLogCfg config;
        ZelDbgLogProc entry;
    } record{};
    record.config.nProcCount = 1;
    record.entry = {77, 3};
    g_pDbgLogCfg = &record.config;
    FakeSystem::Current().getpid = [] {
        errno = EIO;
        return 77;
    };
    const SendCalls calls(0, EPERM);
    EXPECT_EQ(m_search.SendProbeMessage(kSocket, ONVIF_PROBE_NVT), -1);
    EXPECT_THAT(RecordingHost::LogMessages(), ElementsAre("Send probe message failed. [1]\n"));
    g_pDbgLogCfg = nullptr;
}

TEST_F(Sending, ShortSendIsFailure) {
    const SendCalls calls(1);
    EXPECT_EQ(m_search.SendProbeMessage(kSocket, ONVIF_PROBE_DEVICE), -1);
    EXPECT_THAT(RecordingHost::LogLines(),
                ElementsAre(IsLine(3, "SendProbeMessage", "Send probe message failed. [%d]\n",
                                   "Send probe message failed. [0]\n")));
}

TEST_F(Sending, UnknownTypeSendsNothingAndAddsNoLineOfItsOwn) {
    const SendCalls calls;
    EXPECT_EQ(m_search.SendProbeMessage(kSocket, static_cast<ONVIF_PROBE_TYPE>(2)), -1);
    EXPECT_THAT(RecordingHost::LogLines(),
                ElementsAre(IsLine(3, "GenerateProbeMessage", "Unknown Search Type [%d]\n",
                                   "Unknown Search Type [2]\n")));
    EXPECT_THAT(calls.m_messages, IsEmpty());
}

TEST_F(Sending, InvalidGroupAddressIsLoggedAndNothingSent) {
    const SendCalls calls;
    FakeSystem::Current().inetAton = [](const char* text, in_addr*) {
        EXPECT_STREQ(text, "239.255.255.250");
        return 0;
    };
    EXPECT_EQ(m_search.SendProbeMessage(kSocket, ONVIF_PROBE_NVT), -1);
    EXPECT_THAT(RecordingHost::LogLines(),
                ElementsAre(IsLine(3, "SendProbeMessage", "Invalid IP address: %s\n",
                                   "Invalid IP address: 239.255.255.250\n")));
    EXPECT_THAT(calls.m_messages, IsEmpty());
}

// Datagrams for recvfrom; behind the last one a receive fails with `m_nEnd`.
using Script = std::vector<std::pair<std::string, std::string>>;

class Datagrams {
public:
    explicit Datagrams(Script datagrams) : m_datagrams(std::move(datagrams)) {
        FakeSystem::Calls& calls = FakeSystem::Current();
        calls.recvfrom = [this](int fd, void* data, size_t size, int flags, sockaddr* address,
                                socklen_t* length) {
            EXPECT_EQ(fd, kSocket);
            EXPECT_EQ(size, 4096U);
            EXPECT_EQ(flags, 0);
            EXPECT_EQ(*length, 16U);
            return Receive(data, size, address);
        };
        calls.time = [this] { return m_now; };
    }

    std::size_t m_nReceives = 0;
    time_t m_now = 1000;
    time_t m_secondsBetween = 0;
    int m_nEnd = EAGAIN;
    std::function<std::pair<std::string, std::string>(std::size_t)> m_endless;

private:
    ssize_t Receive(void* data, size_t size, sockaddr* address) {
        m_now += m_secondsBetween;
        const std::size_t index = m_nReceives++;
        if (index >= m_datagrams.size() && !m_endless) {
            errno = m_nEnd;
            return -1;
        }
        const auto [ip, payload] = m_endless ? m_endless(index) : m_datagrams[index];
        sockaddr_in sender{};
        sender.sin_family = AF_INET;
        sender.sin_port = htons(40000);
        inet_pton(AF_INET, ip.c_str(), &sender.sin_addr);
        memcpy(address, &sender, sizeof(sender));
        return static_cast<ssize_t>(payload.copy(static_cast<char*>(data), size));
    }

    Script m_datagrams;
};

class Receiving : public MulticastSocket {
protected:
    Receiving() { m_search.m_startTime = 1000; }

    std::map<std::string, std::string>& Receive() {
        m_search.RecvProbeMatchMessage(kSocket, m_replies);
        return m_replies;
    }

    std::map<std::string, std::string> m_replies;
};

TEST_F(Receiving, SilenceLeavesTheMapAsItWas) {
    const Datagrams datagrams(Script{});
    RecordingHost::SetLogLevel(4);
    m_replies["192.168.1.9"] = "earlier";
    EXPECT_THAT(Receive(), ElementsAre(Pair("192.168.1.9", "earlier")));
    EXPECT_EQ(datagrams.m_nReceives, 1U);
    EXPECT_THAT(RecordingHost::LogLines(), IsEmpty());
}

TEST_F(Receiving, AnyErrorEndsTheReceive) {
    for (const int error : {EAGAIN, EINTR, ENETDOWN, ENOMEM, EBADF}) {
        Datagrams datagrams(Script{{"192.168.1.20", "a"}});
        datagrams.m_nEnd = error;
        m_replies.clear();
        EXPECT_THAT(Receive(), ElementsAre(Pair("192.168.1.20", "a")));
        EXPECT_EQ(datagrams.m_nReceives, 2U);
    }
    EXPECT_THAT(RecordingHost::LogLines(), IsEmpty());
}

TEST_F(Receiving, FirstReplyOfASenderStays) {
    const Datagrams datagrams(
        Script{{"192.168.1.20", "first"}, {"192.168.1.20", "second"}, {"192.168.1.20", "third"}});
    EXPECT_THAT(Receive(), ElementsAre(Pair("192.168.1.20", "first")));
    EXPECT_EQ(datagrams.m_nReceives, 4U);
}

TEST_F(Receiving, ReplyOfAnEarlierCycleStays) {
    const Datagrams datagrams(Script{{"192.168.1.20", "later"}, {"192.168.1.21", "new"}});
    m_replies["192.168.1.20"] = "earlier";
    EXPECT_THAT(Receive(),
                ElementsAre(Pair("192.168.1.20", "earlier"), Pair("192.168.1.21", "new")));
}

TEST_F(Receiving, SendersAreOrderedByText) {
    const Datagrams datagrams(Script{{"192.168.1.20", "a"}, {"192.168.1.100", "b"}});
    EXPECT_THAT(Receive(), ElementsAre(Pair("192.168.1.100", "b"), Pair("192.168.1.20", "a")));
}

TEST_F(Receiving, SenderAddressIsDottedDecimal) {
    const Datagrams datagrams(
        Script{{"0.0.0.0", "a"}, {"255.255.255.255", "b"}, {"10.0.0.1", "c"}});
    EXPECT_THAT(Receive(), ElementsAre(Pair("0.0.0.0", "a"), Pair("10.0.0.1", "c"),
                                       Pair("255.255.255.255", "b")));
}

TEST_F(Receiving, EmptyDatagramEndsTheReceive) {
    const Datagrams datagrams(
        Script{{"192.168.1.20", "a"}, {"192.168.1.21", ""}, {"192.168.1.22", "b"}});
    EXPECT_THAT(Receive(), ElementsAre(Pair("192.168.1.20", "a")));
    EXPECT_EQ(datagrams.m_nReceives, 2U);
}

TEST_F(Receiving, PayloadEndsAtFirstZeroByte) {
    const Datagrams datagrams(Script{{"192.168.1.20", std::string("ab\0cd", 5)},
                                     {"192.168.1.21", std::string("\0cd", 3)}});
    EXPECT_THAT(Receive(), ElementsAre(Pair("192.168.1.20", "ab"), Pair("192.168.1.21", "")));
}

TEST_F(Receiving, LongReplyIsCutTo4096Bytes) {
    const Datagrams datagrams(Script{{"192.168.1.20", std::string(4096, 'x') + "rest"},
                                     {"192.168.1.21", std::string(4096, 'y')},
                                     {"192.168.1.22", std::string(4095, 'z')}});
    EXPECT_THAT(Receive(), ElementsAre(Pair("192.168.1.20", std::string(4096, 'x')),
                                       Pair("192.168.1.21", std::string(4096, 'y')),
                                       Pair("192.168.1.22", std::string(4095, 'z'))));
}

TEST_F(Receiving, ShortReplyAfterLongOneHoldsNothingOfIt) {
    const Datagrams datagrams(
        Script{{"192.168.1.20", std::string(4096, 'x')}, {"192.168.1.21", "y"}});
    EXPECT_EQ(Receive()["192.168.1.21"], "y");
}

TEST_F(Receiving, AnythingButAnEmptyDatagramIsTakenUninspected) {
    const Datagrams datagrams(Script{{"192.168.1.20", "\x01\xFF%s\n"}});
    EXPECT_THAT(Receive(), ElementsAre(Pair("192.168.1.20", "\x01\xFF%s\n")));
}

// A sender every 2 seconds holds the receive: for ever in the default build, until 30 seconds
// after the search's time in the bounded one.
TEST_F(Receiving, ChatteringSenderHoldsTheReceiveAsLongAsTheBuildAllows) {
    Datagrams datagrams(Script{});
    datagrams.m_secondsBetween = 2;
    datagrams.m_endless = [](std::size_t index) {
        return std::pair("192.168.1.20", index < 1000 ? "a" : "");
    };
    Receive();
    if constexpr (kBounded) {
        EXPECT_EQ(datagrams.m_now, 1000 + 5 + 30 + 1);
    } else {
        EXPECT_EQ(datagrams.m_nReceives, 1001U);
    }
}

TEST_F(Receiving, DatagramAtTheVeryEndOfTheGraceIsTaken) {
    Datagrams datagrams(
        Script{{"192.168.1.20", "a"}, {"192.168.1.21", "b"}, {"192.168.1.22", "c"}});
    datagrams.m_secondsBetween = 18;  // 18, 36 and 54 seconds after the start
    if constexpr (kBounded) {
        EXPECT_THAT(Receive(), ElementsAre(Pair("192.168.1.20", "a"), Pair("192.168.1.21", "b")));
    } else {
        EXPECT_EQ(Receive().size(), 3U);
    }
}

TEST_F(Receiving, NumberOfSendersIsBoundedWhereTheBuildSaysSo) {
    constexpr std::size_t kSenders = 70000;
    Datagrams datagrams(Script{});
    datagrams.m_endless = [](std::size_t index) {
        const auto part = [&](std::size_t shift) { return std::to_string(index >> shift & 0xFFU); };
        return std::pair("10." + part(16) + "." + part(8) + "." + part(0),
                         std::string(index < kSenders ? "a" : ""));
    };
    EXPECT_EQ(Receive().size(), kBounded ? 65536U : kSenders);
    EXPECT_EQ(datagrams.m_nReceives, kSenders + 1);
    EXPECT_EQ(m_replies.count("10.0.255.255"), 1U);
    EXPECT_EQ(m_replies.count("10.1.0.0"), kBounded ? 0U : 1U);
}

}  // namespace
