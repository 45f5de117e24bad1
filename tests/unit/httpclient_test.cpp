#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <limits>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/zelnet.h"
#include "tests/unit/scriptedserver.h"

namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

constexpr char kType[] = "application/xml; charset=UTF-8";
constexpr std::size_t kLimitBytes = 1024UL * 1024;

struct Settings {
    std::string path = "/desc.xml";
    std::string host = "127.0.0.1";
    std::string user = {};
    std::string password = {};
    int timeoutSeconds = 5;
    HTTP_VERSION version = HTTP_VERSION_1_1;
};

void Init(ZelNet::ZelHttpClient& client, int port, const Settings& settings = {}) {
    client.Init(settings.path, settings.host, port, settings.user, settings.password,
                settings.timeoutSeconds, true, true, false, settings.version, "", false, true);
}

struct Result {
    int code = 1;
    std::string length;
    std::string body;
};

// What the client makes of it all, the body read in one piece.
Result Fetch(int port, const Settings& settings = {}, const std::string& type = kType) {
    ZelNet::ZelHttpClient client;
    Init(client, port, settings);
    Result result;
    result.code = client.SendRequest(ZEL_HTTP_GET, "", type);
    client.GetHttpContent(HTTP_KEY_CONTENT_LENGTH, result.length);
    std::string buffer(2 * kLimitBytes, '\0');
    const int count = client.ReadData(buffer.data(), static_cast<int>(buffer.size()));
    result.body = buffer.substr(0, count > 0 ? static_cast<std::size_t>(count) : 0);
    return result;
}

Result FetchAnswer(std::string answer) {
    const ScriptedServer server(std::move(answer));
    return Fetch(server.Port());
}

void ExpectFailed(const Result& result) {
    EXPECT_NE(result.code, 0);
    EXPECT_EQ(result.length, "");
    EXPECT_EQ(result.body, "");
}

std::string WithLength(const std::string& length, const std::string& body) {
    return "HTTP/1.1 200 OK\r\nContent-Length: " + length + "\r\n\r\n" + body;
}

milliseconds Took(const std::function<void()>& action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start);
}

// The request

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
    Init(client, server.Port());
    EXPECT_NE(client.SendRequest(static_cast<ZEL_HTTP_METHOD>(1), "", kType), 0);
    EXPECT_NE(client.SendRequest(ZEL_HTTP_GET, "body", kType), 0);
    EXPECT_THAT(server.Requests(), IsEmpty());
}

TEST(HttpRequestTest, ClientThatWasNotInitialisedFails) {
    ZelNet::ZelHttpClient client;
    EXPECT_NE(client.SendRequest(ZEL_HTTP_GET, "", kType), 0);
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
    const Result result = Fetch(server.Port());
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

// The answer

TEST(HttpAnswerTest, BodyAndLengthAreHandedOut) {
    const Result result = FetchAnswer(WithLength("7", "<root/>"));
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.length, "7");
    EXPECT_EQ(result.body, "<root/>");
}

TEST(HttpAnswerTest, NameOfTheLengthHeaderHasNoCase) {
    EXPECT_EQ(FetchAnswer("HTTP/1.1 200 OK\r\ncONTENT-lENGTH:\t7  \r\n\r\n<root/>").length, "7");
}

TEST(HttpAnswerTest, ZeroByteInTheBodyStays) {
    const std::string body("a\0b", 3);
    EXPECT_EQ(FetchAnswer(WithLength("3", body)).body, body);
}

TEST(HttpAnswerTest, OldVersionIsTaken) {
    const Result result = FetchAnswer("HTTP/1.0 200 Fine\r\nContent-Length: 2\r\n\r\nok");
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.body, "ok");
}

TEST(HttpAnswerTest, WithoutALengthTheBodyEndsWithTheConnection) {
    const Result result = FetchAnswer("HTTP/1.1 200 OK\r\n\r\n<root/>");
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.length, "");
    EXPECT_EQ(result.body, "<root/>");
}

TEST(HttpAnswerTest, EmptyBodyIsACompleteAnswer) {
    const Result result = FetchAnswer(WithLength("0", ""));
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.length, "0");
    EXPECT_EQ(result.body, "");
}

TEST(HttpAnswerTest, OtherHeadersAreNotToBeHad) {
    const ScriptedServer server(WithLength("2", "ok"));
    ZelNet::ZelHttpClient client;
    Init(client, server.Port());
    ASSERT_EQ(client.SendRequest(ZEL_HTTP_GET, "", kType), 0);
    std::string value = "before";
    client.GetHttpContent(static_cast<HTTP_MAP_KEY>(2), value);
    EXPECT_EQ(value, "");
}

TEST(HttpAnswerTest, OnlyStatus200IsSuccess) {
    for (const char* status : {"201 Created", "203 Other", "206 Partial", "400 Bad", "401 Who",
                               "404 Not Found", "500 Oops", "503 Later"}) {
        ExpectFailed(
            FetchAnswer("HTTP/1.1 " + std::string(status) + "\r\nContent-Length: 2\r\n\r\nno"));
    }
    ExpectFailed(FetchAnswer("HTTP/1.1 204 Empty\r\n\r\n"));
}

TEST(HttpAnswerTest, RedirectIsNotFollowed) {
    const ScriptedServer elsewhere(WithLength("2", "no"));
    for (const char* status : {"301", "302", "303", "307", "308"}) {
        ExpectFailed(FetchAnswer("HTTP/1.1 " + std::string(status) +
                                 " Moved\r\nContent-Length: 0\r\nLocation: http://127.0.0.1:" +
                                 std::to_string(elsewhere.Port()) + "/\r\n\r\n"));
    }
    EXPECT_THAT(elsewhere.Requests(), IsEmpty());
}

TEST(HttpAnswerTest, InterimAnswersAreSkipped) {
    const Result result =
        FetchAnswer("HTTP/1.1 100 Continue\r\nContent-Length: 99\r\n\r\n" + WithLength("2", "ok"));
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.length, "2");
    EXPECT_EQ(result.body, "ok");
}

TEST(HttpAnswerTest, ChunkedBodyIsDecodedAndHasNoLength) {
    const Result result = FetchAnswer(
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
        "5\r\n<root\r\n2;ext=1\r\n/>\r\n0\r\n\r\n");
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.length, "");
    EXPECT_EQ(result.body, "<root/>");
}

TEST(HttpAnswerTest, LengthBesideChunksIsIgnored) {
    for (const char* headers : {"Content-Length: 3\r\nTransfer-Encoding: chunked\r\n",
                                "Transfer-Encoding: chunked\r\nContent-Length: 3\r\n"}) {
        const Result result = FetchAnswer("HTTP/1.1 200 OK\r\n" + std::string(headers) +
                                          "\r\n7\r\n<root/>\r\n0\r\n\r\n");
        EXPECT_EQ(result.code, 0);
        EXPECT_EQ(result.length, "");
        EXPECT_EQ(result.body, "<root/>");
    }
}

TEST(HttpAnswerTest, LengthInATrailerIsIgnored) {
    const Result result = FetchAnswer(
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
        "2\r\nok\r\n0\r\nContent-Length: 2147483647\r\n\r\n");
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.length, "");
}

TEST(HttpAnswerTest, BrokenChunksFail) {
    const std::string header = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (const char* body : {"", "5\r\n<ro", "5\r\n<root\r\n", "-5\r\n<root\r\n0\r\n\r\n", "zz\r\n",
                             "5\r\n<rootXX0\r\n\r\n", "ffffffffffffffff1\r\nx\r\n0\r\n\r\n"}) {
        ExpectFailed(FetchAnswer(header + body));
    }
}

TEST(HttpAnswerTest, CodedBodyIsLeftAsItCame) {
    const std::string coded("\x1f\x8b\x08\0\0\0\0\0\0\x03\x03\0\0\0\0\0\0\0\0\0", 20);
    for (const char* coding : {"gzip", "deflate", "br", "unheard-of"}) {
        const Result result =
            FetchAnswer("HTTP/1.1 200 OK\r\nContent-Encoding: " + std::string(coding) +
                        "\r\nContent-Length: 20\r\n\r\n" + coded);
        EXPECT_EQ(result.code, 0) << coding;
        EXPECT_EQ(result.length, "20") << coding;
        EXPECT_EQ(result.body, coded) << coding;
    }
}

TEST(HttpAnswerTest, LengthThatIsNotANumberFails) {
    for (const char* length : {"-1", "-2147483648", "", "abc", "0x5", "5x", "5, 6", "5;6", "5 5"}) {
        const Result result = FetchAnswer(WithLength(length, "<root"));
        EXPECT_NE(result.code, 0) << length;
        EXPECT_EQ(result.length, "") << length;
    }
}

TEST(HttpAnswerTest, HugePromisesFail) {
    for (const char* length :
         {"1048577", "2147483647", "2147483648", "4294967301", "9223372036854775807",
          "18446744073709551621", "99999999999999999999999999999"}) {
        const Result result = FetchAnswer(WithLength(length, "<root"));
        EXPECT_NE(result.code, 0) << length;
        EXPECT_EQ(result.length, "") << length;
    }
}

TEST(HttpAnswerTest, SameLengthTwiceIsTakenOnce) {
    const Result result =
        FetchAnswer("HTTP/1.1 200 OK\r\nContent-Length: 2\r\nContent-Length: 2\r\n\r\nok");
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.length, "2");
}

TEST(HttpAnswerTest, TwoDifferentLengthsFail) {
    for (const auto& [first, second] : {std::pair("2", "3"), {"3", "2"}, {"2", "2147483647"}}) {
        ExpectFailed(FetchAnswer("HTTP/1.1 200 OK\r\nContent-Length: " + std::string(first) +
                                 "\r\nContent-Length: " + second + "\r\n\r\nok!"));
    }
}

TEST(HttpAnswerTest, MoreThanPromisedIsLeftOut) {
    const Result result = FetchAnswer(WithLength("2", "ok and more"));
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.length, "2");
    EXPECT_EQ(result.body, "ok");
}

TEST(HttpAnswerTest, LessThanPromisedFails) {
    ExpectFailed(FetchAnswer(WithLength("8", "<root/>")));
}

TEST(HttpAnswerTest, ResetHalfWayFails) {
    for (const std::string begin : {"", "HTTP/1.1 200 OK\r\n", "HTTP/1.1 200 OK\r\n\r\n<root"}) {
        const ScriptedServer server([&](const ScriptedConnection& connection) {
            connection.Send(begin);
            connection.ResetOnClose();
        });
        ExpectFailed(Fetch(server.Port()));
    }
}

TEST(HttpAnswerTest, WhatIsNotHttpFails) {
    for (const std::string& answer : {std::string(), std::string("\r\n\r\n"),
                                      std::string("<root/>"), std::string("ICY 200 OK\r\n\r\nx"),
                                      std::string("HTTP/1.1 200"), std::string(4000, '\0')}) {
        ExpectFailed(FetchAnswer(answer));
    }
}

TEST(HttpAnswerTest, BodyOfTheLimitIsTaken) {
    const std::string body(kLimitBytes, 'b');
    const Result result = FetchAnswer(WithLength("1048576", body));
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.length, "1048576");
    EXPECT_TRUE(result.body == body);
}

TEST(HttpAnswerTest, BodyOverTheLimitFailsWithoutALength) {
    ExpectFailed(FetchAnswer("HTTP/1.1 200 OK\r\n\r\n" + std::string(kLimitBytes + 1, 'b')));
}

TEST(HttpAnswerTest, EndlessBodyIsCutOffAtTheLimit) {
    const ScriptedServer server([](const ScriptedConnection& connection) {
        connection.Send("HTTP/1.1 200 OK\r\n\r\n");
        connection.SendForEver(std::string(65536, 'b'));
    });
    EXPECT_LT(Took([&] { ExpectFailed(Fetch(server.Port())); }), milliseconds(4000));
}

TEST(HttpAnswerTest, EndlessChunksAreCutOffAtTheLimit) {
    const ScriptedServer server([](const ScriptedConnection& connection) {
        connection.Send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
        connection.SendForEver("1000\r\n" + std::string(4096, 'b') + "\r\n");
    });
    EXPECT_LT(Took([&] { ExpectFailed(Fetch(server.Port())); }), milliseconds(4000));
}

TEST(HttpAnswerTest, HeadersWithoutEndAreCutOff) {
    const std::pair<std::string, std::string> cases[] = {
        {"HTTP/1.1 200 OK\r\n", "X-Header: " + std::string(100, 'h') + "\r\n"},
        {"HTTP/1.1 200 OK\r\nX-Header: ", std::string(100, 'h')},
        {"", "HTTP/1.1 100 Continue\r\n\r\n"},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nok\r\n0\r\n", "X: trailer\r\n"},
    };
    for (const auto& [begin, endless] : cases) {
        // Named anew: C++20's lambdas capture structured bindings, clang 14 does not.
        const ScriptedServer server(
            [&begin = begin, &endless = endless](const ScriptedConnection& connection) {
                connection.Send(begin);
                connection.SendForEver(endless);
            });
        EXPECT_LT(Took([&] { ExpectFailed(Fetch(server.Port())); }), milliseconds(4000)) << endless;
    }
}

TEST(HttpAnswerTest, HeadersOfSomeSizeAreTaken) {
    std::string answer = "HTTP/1.1 200 OK\r\n";
    for (int i = 0; i < 300; ++i) {
        answer += "X-Header: " + std::string(100, 'h') + "\r\n";
    }
    EXPECT_EQ(FetchAnswer(answer + "Content-Length: 2\r\n\r\nok").body, "ok");
}

// The time

TEST(HttpTimeTest, SilentServerCostsTheTimeAndNoMore) {
    bool closed = false;
    milliseconds took{};
    {
        const ScriptedServer server([&](const ScriptedConnection& connection) {
            closed = connection.WaitForClose(10'000);
        });
        took = Took([&] { ExpectFailed(Fetch(server.Port(), {.timeoutSeconds = 1})); });
    }
    EXPECT_TRUE(closed);
    EXPECT_GE(took, milliseconds(900));
    EXPECT_LT(took, milliseconds(4000));
}

TEST(HttpTimeTest, DribbledAnswerCostsTheTimeAndNoMore) {
    const ScriptedServer server([](const ScriptedConnection& connection) {
        connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n");
        while (connection.Send("b") && !connection.WaitForClose(50)) {
        }
    });
    const auto took = Took([&] { ExpectFailed(Fetch(server.Port(), {.timeoutSeconds = 1})); });
    EXPECT_GE(took, milliseconds(900));
    EXPECT_LT(took, milliseconds(4000));
}

TEST(HttpTimeTest, ConnectionKeptOpenBehindACompleteAnswerCostsNothing) {
    const ScriptedServer server([](const ScriptedConnection& connection) {
        connection.Send(WithLength("2", "ok"));
        connection.WaitForClose(10'000);
    });
    Result result;
    EXPECT_LT(Took([&] { result = Fetch(server.Port()); }), milliseconds(4000));
    EXPECT_EQ(result.body, "ok");
}

// Reading

class HttpReadTest : public ::testing::Test {
protected:
    HttpReadTest() : m_server(WithLength("7", "<root/>")) {
        Init(m_client, m_server.Port());
        m_code = m_client.SendRequest(ZEL_HTTP_GET, "", kType);
    }
    std::string Read(int size) {
        char buffer[64] = {};
        const int count = m_client.ReadData(buffer, size);
        return count > 0 ? std::string(buffer, static_cast<std::size_t>(count)) : "nothing";
    }

    ScriptedServer m_server;
    ZelNet::ZelHttpClient m_client;
    int m_code = -1;
};

TEST_F(HttpReadTest, PiecesFollowEachOtherToTheEnd) {
    ASSERT_EQ(m_code, 0);
    EXPECT_EQ(Read(5), "<root");
    EXPECT_EQ(Read(1), "/");
    EXPECT_EQ(Read(64), ">");
    EXPECT_EQ(Read(64), "nothing");
}

TEST_F(HttpReadTest, NoRoomReadsNothing) {
    EXPECT_EQ(Read(0), "nothing");
    EXPECT_EQ(Read(-1), "nothing");
    EXPECT_LE(m_client.ReadData(nullptr, 5), 0);
    EXPECT_EQ(Read(64), "<root/>");
}

TEST_F(HttpReadTest, SecondRequestBeginsAnew) {
    Read(5);
    ASSERT_EQ(m_client.SendRequest(ZEL_HTTP_GET, "", kType), 0);
    EXPECT_EQ(Read(64), "<root/>");
}

TEST_F(HttpReadTest, FailedRequestLeavesNothingOfTheFormerOne) {
    Init(m_client, 0);
    EXPECT_NE(m_client.SendRequest(ZEL_HTTP_GET, "", kType), 0);
    std::string length = "before";
    m_client.GetHttpContent(HTTP_KEY_CONTENT_LENGTH, length);
    EXPECT_EQ(length, "");
    EXPECT_EQ(Read(64), "nothing");
}

TEST_F(HttpReadTest, NewSettingsTakeEffect) {
    const ScriptedServer other(WithLength("5", "other"));
    Init(m_client, other.Port());
    ASSERT_EQ(m_client.SendRequest(ZEL_HTTP_GET, "", kType), 0);
    EXPECT_EQ(Read(64), "other");
}

}  // namespace
