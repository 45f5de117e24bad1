// What a user of the HTTP client does with it, for tests.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "host/zelnet.h"
#include "tests/unit/support/scriptedserver.h"

inline constexpr char kContentType[] = "application/xml; charset=UTF-8";
inline constexpr std::size_t kBodyLimitBytes = 1024UL * 1024;

struct HttpSettings {
    std::string path = "/desc.xml";
    std::string host = "127.0.0.1";
    std::string user = {};
    std::string password = {};
    int timeoutSeconds = 5;
    HTTP_VERSION version = HTTP_VERSION_1_1;
};

inline void InitClient(ZelNet::ZelHttpClient& client, int port, const HttpSettings& settings = {}) {
    client.Init(settings.path, settings.host, port, settings.user, settings.password,
                settings.timeoutSeconds, true, true, false, settings.version, "", false, true);
}

struct FetchResult {
    int code = 1;
    std::string length;
    std::string body;
};

// What the client makes of it all, the body read in one piece.
inline FetchResult Fetch(int port, const HttpSettings& settings = {},
                         const std::string& type = kContentType) {
    ZelNet::ZelHttpClient client;
    InitClient(client, port, settings);
    FetchResult result;
    result.code = client.SendRequest(ZEL_HTTP_GET, "", type);
    client.GetHttpContent(HTTP_KEY_CONTENT_LENGTH, result.length);
    std::string buffer(2 * kBodyLimitBytes, '\0');
    const int count = client.ReadData(buffer.data(), static_cast<int>(buffer.size()));
    result.body = buffer.substr(0, count > 0 ? static_cast<std::size_t>(count) : 0);
    return result;
}

inline FetchResult FetchAnswer(std::string answer) {
    const ScriptedServer server(std::move(answer));
    return Fetch(server.Port());
}

inline void ExpectFailed(const FetchResult& result) {
    EXPECT_NE(result.code, 0);
    EXPECT_EQ(result.length, "");
    EXPECT_EQ(result.body, "");
}

inline std::string WithLength(const std::string& length, const std::string& body) {
    return "HTTP/1.1 200 OK\r\nContent-Length: " + length + "\r\n\r\n" + body;
}
