// What the server provides for networking: a subnet test and an HTTP client.
#pragma once

#include <memory>
#include <string>

// True when two dotted IPv4 addresses share a subnet.
bool IsSameSubnet(const std::string& a, const std::string& b);

// Any int is a valid value of each of the three.
enum HTTP_VERSION : int {
    HTTP_VERSION_1_1 = 2,
};
enum ZEL_HTTP_METHOD : int {
    ZEL_HTTP_GET = 0,
};
enum HTTP_MAP_KEY : int {
    HTTP_KEY_CONTENT_LENGTH = 1,
};

namespace ZelNet {

// One HTTP request and its answer: Init, SendRequest, then GetHttpContent and ReadData.
// An object is used by one thread at a time.
class ZelHttpClient {
public:
    ZelHttpClient();
    ~ZelHttpClient();
    ZelHttpClient(const ZelHttpClient&) = delete;
    ZelHttpClient& operator=(const ZelHttpClient&) = delete;

    // Configures one request. The settings are positional and the client's own; the library always
    // passes: path, host, port, "", "", 5, true, true, false, HTTP_VERSION_1_1, "", false, true.
    void Init(std::string path, std::string host, int port, std::string user, std::string password,
              int timeoutSeconds, bool option1, bool option2, bool option3, HTTP_VERSION version,
              std::string option4, bool option5, bool option6);

    // Sends the request; returns 0 on success.
    int SendRequest(ZEL_HTTP_METHOD method, std::string body, const std::string& contentType);

    // Copies one value of the response's header into `value`.
    void GetHttpContent(HTTP_MAP_KEY key, std::string& value) const;

    // Reads at most `size` body bytes into `buf`; returns the count, 0 or less when nothing was
    // read.
    int ReadData(char* buf, int size);

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
};

}  // namespace ZelNet
