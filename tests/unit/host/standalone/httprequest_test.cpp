// What the HTTP client sends, and what it refuses to send.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/support/httpfetch.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

TEST(HttpRequestTest, IsOnePlainGet) {
    const ScriptedServer server(WithLength("2", "ok"));
    EXPECT_EQ(Fetch(server.Port()).code, 0);
    ASSERT_THAT(server.Requests(), SizeIs(1));
    EXPECT_EQ(server.Requests()[0],
              "GET /desc.xml HTTP/1.1\r\n"
              "Host: 127.0.0.1:" +
                  std::to_string(server.Port()) +
                  "\r\n"
                  "Accept: */*\r\n"
                  "Connection: close\r\n"
                  "Content-Type: application/xml; charset=UTF-8\r\n"
                  "\r\n");
}

struct PathCase {
    std::string path, sent;
};

TEST(HttpRequestTest, PathIsSentAsItStands) {
    const PathCase cases[] = {
        {"/", "/"},
        {"/a/../b/./c", "/a/../b/./c"},
        {"//elsewhere.example/x", "//elsewhere.example/x"},
        {"/@127.0.0.2/x", "/@127.0.0.2/x"},
        {"/q?a=b&c=%20d", "/q?a=b&c=%20d"},
        {"/x#fragment", "/x"},
        {"/with space", "/with%20space"},
        {"/\xc3\xbc\xff", "/%C3%BC%FF"},
        {"/{a}[1-9],\\", "/{a}[1-9],\\"},
    };
    for (const auto& [path, sent] : cases) {
        const ScriptedServer server(WithLength("2", "ok"));
        EXPECT_EQ(Fetch(server.Port(), {.path = path}).code, 0) << path;
        ASSERT_THAT(server.Requests(), SizeIs(1)) << path;
        EXPECT_THAT(server.Requests()[0], StartsWith("GET " + sent + " HTTP/1.1\r\n"));
    }
}

TEST(HttpRequestTest, PathWithControlCharactersIsRefused) {
    const ScriptedServer server(WithLength("2", "ok"));
    const std::string paths[] = {"/x HTTP/1.1\r\nEvil: 1\r\n\r\n", "/x\ny", "/x\ry", "/x\ty",
                                 std::string("/x\0y", 4),          "/\x7f", "/\x1b", "/x#\r\n"};
    for (const std::string& path : paths) {
        ExpectFailed(Fetch(server.Port(), {.path = path}));
    }
    EXPECT_THAT(server.Requests(), IsEmpty());
}

TEST(HttpRequestTest, PathThatDoesNotBeginWithASlashIsRefused) {
    const ScriptedServer server(WithLength("2", "ok"));
    for (const std::string path : {"", "x", "@127.0.0.2/", ".example/", "0/", "?x"}) {
        ExpectFailed(Fetch(server.Port(), {.path = path}));
    }
    EXPECT_THAT(server.Requests(), IsEmpty());
}

TEST(HttpRequestTest, ContentTypeWithControlCharactersIsRefused) {
    const ScriptedServer server(WithLength("2", "ok"));
    for (const std::string type : {"text/xml\r\nEvil: 1", "text/xml\n", "a\x7f"}) {
        ExpectFailed(Fetch(server.Port(), {}, type));
    }
    EXPECT_THAT(server.Requests(), IsEmpty());
}

TEST(HttpRequestTest, EmptyContentTypeMeansNoSuchHeader) {
    const ScriptedServer server(WithLength("2", "ok"));
    EXPECT_EQ(Fetch(server.Port(), {}, "").code, 0);
    ASSERT_THAT(server.Requests(), SizeIs(1));
    EXPECT_THAT(server.Requests()[0], Not(HasSubstr("Content-Type")));
}

TEST(HttpRequestTest, HostThatIsNoDottedQuadIsRefused) {
    const ScriptedServer server(WithLength("2", "ok"));
    const std::string hosts[] = {"",
                                 "localhost",
                                 "127.1",
                                 "127.0.1",
                                 "2130706433",
                                 "0x7f.0.0.1",
                                 "0177.0.0.1",
                                 "127.0.0.01",
                                 " 127.0.0.1",
                                 "127.0.0.1 ",
                                 "127.0.0.1\r\nEvil: 1",
                                 "127.0.0.1/x",
                                 "user@127.0.0.1",
                                 "[::1]",
                                 "::ffff:127.0.0.1",
                                 std::string("127.0.0.1\0", 10)};
    for (const std::string& host : hosts) {
        ExpectFailed(Fetch(server.Port(), {.host = host}));
    }
    EXPECT_THAT(server.Requests(), IsEmpty());
}

TEST(HttpRequestTest, PortOutsideOneTo65535IsRefused) {
    const ScriptedServer server(WithLength("2", "ok"));
    for (const int port : {0, -1, -server.Port(), 65536, server.Port() + 65536,
                           std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        ExpectFailed(Fetch(port));
    }
    EXPECT_THAT(server.Requests(), IsEmpty());
}

TEST(HttpRequestTest, WhatTheClientCannotDoFails) {
    const ScriptedServer server(WithLength("2", "ok"));
    ExpectFailed(Fetch(server.Port(), {.user = "admin"}));
    ExpectFailed(Fetch(server.Port(), {.password = "secret"}));
    ExpectFailed(Fetch(server.Port(), {.version = static_cast<HTTP_VERSION>(1)}));
    ExpectFailed(Fetch(server.Port(), {.timeoutSeconds = 0}));
    ExpectFailed(Fetch(server.Port(), {.timeoutSeconds = -1}));
    ZelNet::ZelHttpClient client;
    InitClient(client, server.Port());
    EXPECT_NE(client.SendRequest(static_cast<ZEL_HTTP_METHOD>(1), "", kContentType), 0);
    EXPECT_NE(client.SendRequest(ZEL_HTTP_GET, "body", kContentType), 0);
    EXPECT_THAT(server.Requests(), IsEmpty());
}

TEST(HttpRequestTest, ClientThatWasNotInitialisedFails) {
    ZelNet::ZelHttpClient client;
    EXPECT_NE(client.SendRequest(ZEL_HTTP_GET, "", kContentType), 0);
}

TEST(HttpRequestTest, NobodyListeningFails) {
    int port = 0;
    {
        const ScriptedServer server("");
        port = server.Port();
    }
    ExpectFailed(Fetch(port));
}

TEST(HttpRequestTest, ProxyOfTheEnvironmentIsNotUsed) {
    const ScriptedServer proxy(WithLength("5", "proxy"));
    const ScriptedServer server(WithLength("2", "ok"));
    const std::string url = "http://127.0.0.1:" + std::to_string(proxy.Port());
    const char* const names[] = {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"};
    for (const char* name : names) {
        setenv(name, url.c_str(), 1);
    }
    const FetchResult result = Fetch(server.Port());
    for (const char* name : names) {
        unsetenv(name);
    }
    EXPECT_EQ(result.body, "ok");
    EXPECT_THAT(proxy.Requests(), IsEmpty());
}

TEST(HttpRequestTest, SignalHandlingOfTheProcessIsNotTouchedMeanwhile) {
    ASSERT_EQ(signal(SIGPIPE, SIG_DFL), SIG_DFL);
    std::vector<bool> untouched;
    const ScriptedServer server([&](const ScriptedConnection& connection) {
        for (const int number : {SIGPIPE, SIGALRM}) {
            struct sigaction action {};
            sigaction(number, nullptr, &action);
            untouched.push_back(action.sa_handler == SIG_DFL);
        }
        connection.Send(WithLength("2", "ok"));
    });
    EXPECT_EQ(Fetch(server.Port()).code, 0);
    EXPECT_THAT(untouched, ElementsAre(true, true));
}

// The network sockets of this process that a program it starts would have, too. (libcurl's pair of
// local sockets for waking itself is no business of a device.)
std::vector<int> SocketsThatProgramsWouldInherit() {
    std::vector<int> sockets;
    for (int fd = 0; fd < 1024; ++fd) {
        sockaddr_storage address{};
        socklen_t size = sizeof address;
        if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
            address.ss_family == AF_INET && (fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0) {
            sockets.push_back(fd);
        }
    }
    return sockets;
}

TEST(HttpRequestTest, SocketIsNotInheritedByPrograms) {
    const auto before = SocketsThatProgramsWouldInherit();
    std::vector<int> during;
    const ScriptedServer server([&](const ScriptedConnection& connection) {
        during = SocketsThatProgramsWouldInherit();
        connection.Send(WithLength("2", "ok"));
    });
    EXPECT_EQ(Fetch(server.Port()).code, 0);
    EXPECT_EQ(during, before);
}

TEST(HttpRequestTest, ManyThreadsFetchAtOnce) {
    const ScriptedServer server(WithLength("2", "ok"));
    std::vector<std::thread> threads;
    std::atomic<int> fetched = 0;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] { fetched += Fetch(server.Port()).body == "ok" ? 1 : 0; });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(fetched, 4);
}

}  // namespace
