#include <arpa/inet.h>
#include <curl/curl.h>
#include <pthread.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "host/standalone/httpturns.h"
#include "host/standalone/ipv4.h"
#include "host/standalone/seam.h"

namespace {

// Device descriptions are a few kilobytes. Whatever promises or sends more is refused, so that the
// caller, which allocates what the length header says, never allocates more than this.
constexpr std::size_t kMaxBodyBytes = 1024UL * 1024;
constexpr std::size_t kMaxHeaderBytes = 64UL * 1024;  // all header lines of an answer together

using Clock = std::chrono::steady_clock;

struct FreeCurl {
    void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
};
struct FreeUrl {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using CurlHandle = std::unique_ptr<CURL, FreeCurl>;
using CurlList = std::unique_ptr<curl_slist, FreeUrl>;

// Everything is set up, TLS included, although plain HTTP needs none of it: the first set-up in a
// process is the one that counts, and another user of libcurl in this process may rely on it.
bool SetUpCurl() {
    static const CURLcode code = curl_global_init(CURL_GLOBAL_DEFAULT);
    return code == CURLE_OK;
}

bool IsControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
}

bool HasControl(std::string_view text) {
    return std::any_of(text.begin(), text.end(), IsControl);
}

// What is put into the request line. The path comes from a URL that anyone on the network may have
// sent: a line break in it would begin a header line of its own, so control characters are refused.
// Spaces, which would end the path, and bytes outside ASCII are percent-encoded.
std::optional<std::string> RequestPath(std::string_view path) {
    if (!path.starts_with('/') || HasControl(path)) {
        return std::nullopt;
    }
    std::string encoded;
    for (const char c : path.substr(0, path.find('#'))) {  // a fragment is never sent
        const auto byte = static_cast<unsigned char>(c);
        if (byte > ' ' && byte < 0x7F) {
            encoded.push_back(c);
        } else {
            constexpr char kHex[] = "0123456789ABCDEF";
            encoded.append({'%', kHex[byte >> 4], kHex[byte & 0xF]});
        }
    }
    return encoded;
}

// One answer while libcurl receives it.
struct Answer {
    std::string strBody;
    std::size_t nHeaderBytes = 0;
    sockaddr_in peer{};  // the one address that may be connected to
};

// libcurl's callbacks. Anything but the size that was handed in ends the transfer as failed.

std::size_t OnBody(char* data, std::size_t size, std::size_t count, void* cookie) {
    std::string& body = static_cast<Answer*>(cookie)->strBody;
    const std::size_t bytes = size * count;
    if (bytes > kMaxBodyBytes - body.size()) {
        return 0;
    }
    try {
        body.append(data, bytes);
    } catch (const std::bad_alloc&) {
        return 0;
    }
    return bytes;
}

std::size_t OnHeader(char* /*data*/, std::size_t size, std::size_t count, void* cookie) {
    std::size_t& total = static_cast<Answer*>(cookie)->nHeaderBytes;
    const std::size_t bytes = size * count;
    total += bytes;
    return total <= kMaxHeaderBytes ? bytes : 0;
}

// The last word on where a request goes: the checked address and no other, whatever became of the
// URL. The socket is closed in programs that the host process starts meanwhile.
curl_socket_t OnOpenSocket(void* cookie, curlsocktype /*purpose*/, curl_sockaddr* address) {
    const sockaddr_in& peer = static_cast<const Answer*>(cookie)->peer;
    sockaddr_in asked{};
    if (address->family != AF_INET || address->addrlen != sizeof asked) {
        return CURL_SOCKET_BAD;
    }
    std::memcpy(&asked, &address->addr, sizeof asked);
    if (asked.sin_addr.s_addr != peer.sin_addr.s_addr || asked.sin_port != peer.sin_port) {
        return CURL_SOCKET_BAD;
    }
    return socket(AF_INET, address->socktype | SOCK_CLOEXEC, address->protocol);
}

template <typename Value>
bool Set(CURL* curl, CURLoption option, Value value) {
    return curl_easy_setopt(curl, option, value) == CURLE_OK;
}

bool Restrict(CURL* curl) {
    return Set(curl, CURLOPT_PROTOCOLS_STR, "http") && Set(curl, CURLOPT_FOLLOWLOCATION, 0L) &&
           Set(curl, CURLOPT_PROXY, "") &&  // also none from the environment
           Set(curl, CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED)) &&
           Set(curl, CURLOPT_DISALLOW_USERNAME_IN_URL, 1L) && Set(curl, CURLOPT_NOSIGNAL, 1L) &&
           Set(curl, CURLOPT_PATH_AS_IS, 1L) &&
           Set(curl, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1)) &&
           // A coded body was not asked for; it is handed on as it came.
           Set(curl, CURLOPT_HTTP_CONTENT_DECODING, 0L) &&
           Set(curl, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(kMaxBodyBytes));
}

bool Receive(CURL* curl, Answer& answer) {
    void* const cookie = &answer;
    return Set(curl, CURLOPT_WRITEFUNCTION, &OnBody) && Set(curl, CURLOPT_WRITEDATA, cookie) &&
           Set(curl, CURLOPT_HEADERFUNCTION, &OnHeader) && Set(curl, CURLOPT_HEADERDATA, cookie) &&
           Set(curl, CURLOPT_OPENSOCKETFUNCTION, &OnOpenSocket) &&
           Set(curl, CURLOPT_OPENSOCKETDATA, cookie);
}

CurlList RequestHeaders(const std::string& contentType) {
    CurlList list(curl_slist_append(nullptr, "Connection: close"));
    if (!list || contentType.empty()) {
        return list;
    }
    const std::string header = "Content-Type: " + contentType;
    return curl_slist_append(list.get(), header.c_str()) == nullptr ? nullptr : std::move(list);
}

bool HasHeader(CURL* curl, const char* name) {
    curl_header* header = nullptr;
    return curl_easy_header(curl, name, 0, CURLH_HEADER, -1, &header) == CURLHE_OK;
}

// The length that an answer promises: what every length header of it says, in plain digits. Signs,
// lists and lines that contradict each other are what attacks on parsers are made of (RFC 9112,
// 6.3), and give none; nor does more than this client takes.
std::optional<std::size_t> PromisedLength(CURL* curl) {
    std::optional<std::size_t> promised;
    curl_header* header = nullptr;
    for (std::size_t i = 0;
         curl_easy_header(curl, "Content-Length", i, CURLH_HEADER, -1, &header) == CURLHE_OK; ++i) {
        const std::string_view text(header->value);
        std::size_t said = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), said);
        if (error != std::errc() || end != text.data() + text.size() || said > kMaxBodyBytes ||
            promised.value_or(said) != said) {
            return std::nullopt;
        }
        promised = said;
    }
    return promised;
}

// Never destroyed: requests may run while the process ends.
std::atomic<HttpTurns*>& PresentTurns() {
    static std::atomic<HttpTurns*> turns{std::make_unique<HttpTurns>().release()};
    return turns;
}

HttpTurns& Turns() {
    return *PresentTurns();
}

// A forked child has none of the threads whose requests run here, and begins anew. The parent's
// lock is not taken for that: who forks in a log sink holds the log's, and another fork would take
// the two the other way round.
[[gnu::constructor]] void LookAfterForks() {
    PresentTurns();
    pthread_atfork(nullptr, nullptr,
                   [] { PresentTurns() = std::make_unique<HttpTurns>().release(); });
}

// A turn that was begun, until the end of the scope.
class Turn {
public:
    explicit Turn(in_addr host) : m_host(host) {}
    ~Turn() { Turns().End(m_host, m_outcome); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    void Note(CURLcode code) {
        if (code == CURLE_OPERATION_TIMEDOUT) {
            m_outcome = HttpTurns::Outcome::TimedOut;
        } else if (code == CURLE_OK || code == CURLE_PARTIAL_FILE) {
            m_outcome = HttpTurns::Outcome::Answered;
        }
    }

private:
    in_addr m_host;
    HttpTurns::Outcome m_outcome = HttpTurns::Outcome::Failed;
};

// Tries to connect twice, half a second each: the kernel repeats a lost request to connect only
// after a whole one.
CURLcode Transfer(CURL* curl, Clock::time_point deadline) {
    constexpr int kAttempts = 2;
    constexpr long kConnectMs = 500;
    CURLcode code = CURLE_FAILED_INIT;
    curl_off_t connected = 0;
    for (int attempt = 0; attempt < kAttempts && connected == 0; ++attempt) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        // libcurl takes a time of 0 for no limit.
        if (!Set(curl, CURLOPT_CONNECTTIMEOUT_MS, kConnectMs) ||
            !Set(curl, CURLOPT_TIMEOUT_MS, std::max(1L, static_cast<long>(left.count())))) {
            return CURLE_FAILED_INIT;
        }
        code = curl_easy_perform(curl);
        curl_easy_getinfo(curl, CURLINFO_CONNECT_TIME_T, &connected);
        if (code != CURLE_OPERATION_TIMEDOUT) {
            break;
        }
    }
    return code;
}

}  // namespace

struct ZelNet::ZelHttpClient::Impl {
    struct Request {
        std::string strPath, strHost;
        int nPort = 0;
        int nTimeoutSeconds = 0;
        bool bSupported = false;
    };

    bool Fetch(const std::string& contentType);
    bool Perform(CURL* curl, const std::string& url, const std::string& contentType);
    bool Keep(CURL* curl, bool whole, Answer& answer);

    Request m_request;
    std::string m_strBody;
    std::size_t m_readBytes = 0;
    std::optional<std::size_t> m_promised;  // the length header, where the answer goes by it
};

bool ZelNet::ZelHttpClient::Impl::Fetch(const std::string& contentType) {
    const auto host = ParseIpv4(m_request.strHost);
    const auto path = RequestPath(m_request.strPath);
    const bool portValid = m_request.nPort > 0 && m_request.nPort <= 65535;
    if (!m_request.bSupported || !host || !path || !portValid || m_request.nTimeoutSeconds <= 0 ||
        HasControl(contentType) || !SetUpCurl()) {
        return false;
    }
    const CurlHandle curl(curl_easy_init());
    const std::string url =
        "http://" + m_request.strHost + ":" + std::to_string(m_request.nPort) + *path;
    return curl && Perform(curl.get(), url, contentType);
}

bool ZelNet::ZelHttpClient::Impl::Perform(CURL* curl, const std::string& url,
                                          const std::string& contentType) {
    Answer answer;
    answer.peer.sin_addr = *ParseIpv4(m_request.strHost);
    answer.peer.sin_port = htons(static_cast<std::uint16_t>(m_request.nPort));
    const auto deadline = Clock::now() + std::chrono::seconds(m_request.nTimeoutSeconds);
    const CurlList headers = RequestHeaders(contentType);
    if (!headers || !Restrict(curl) || !Receive(curl, answer) ||
        !Set(curl, CURLOPT_URL, url.c_str()) || !Set(curl, CURLOPT_HTTPHEADER, headers.get()) ||
        !Turns().Begin(answer.peer.sin_addr)) {
        return false;
    }
    Turn turn(answer.peer.sin_addr);
    const CURLcode code = Transfer(curl, deadline);
    turn.Note(code);
    // Devices promise more than they send: what came before the orderly end is the whole document.
    return (code == CURLE_OK || code == CURLE_PARTIAL_FILE) && Keep(curl, code == CURLE_OK, answer);
}

bool ZelNet::ZelHttpClient::Impl::Keep(CURL* curl, bool whole, Answer& answer) {
    long status = 0;
    if (curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status) != CURLE_OK || status != 200) {
        return false;
    }
    // A chunked answer's length is that of its chunks, whatever a length header beside them says
    // (RFC 9112, 6.3).
    const bool hasLength =
        HasHeader(curl, "Content-Length") && !HasHeader(curl, "Transfer-Encoding");
    const std::optional<std::size_t> promised = hasLength ? PromisedLength(curl) : std::nullopt;
    const bool fits = promised && answer.strBody.size() <= *promised;
    if (hasLength ? !fits : !whole) {
        return false;
    }
    m_strBody = std::move(answer.strBody);
    m_promised = promised;
    return true;
}

// NOLINTBEGIN(performance-unnecessary-value-param): the signatures are the server's.

// Without memory for its state a client stays, and every request fails.
ZelNet::ZelHttpClient::ZelHttpClient() : m_pImpl(new (std::nothrow) Impl) {}

ZelNet::ZelHttpClient::~ZelHttpClient() = default;

// The switches without a name are the server's; this client does the same whatever they say. What
// it cannot do (credentials, another version of HTTP) fails the request rather than being left out.
void ZelNet::ZelHttpClient::Init(std::string path, std::string host, int port, std::string user,
                                 std::string password, int timeoutSeconds, bool /*option1*/,
                                 bool /*option2*/, bool /*option3*/, HTTP_VERSION version,
                                 std::string /*option4*/, bool /*option5*/, bool /*option6*/) {
    if (!m_pImpl) {
        return;
    }
    const bool supported = user.empty() && password.empty() && version == HTTP_VERSION_1_1;
    m_pImpl->m_request = {std::move(path), std::move(host), port, timeoutSeconds, supported};
}

int ZelNet::ZelHttpClient::SendRequest(ZEL_HTTP_METHOD method, std::string body,
                                       const std::string& contentType) {
    if (!m_pImpl) {
        return -1;
    }
    m_pImpl->m_strBody.clear();
    m_pImpl->m_readBytes = 0;
    m_pImpl->m_promised.reset();
    if (method != ZEL_HTTP_GET || !body.empty()) {
        return -1;
    }
    try {
        return m_pImpl->Fetch(contentType) ? 0 : -1;
    } catch (const std::exception&) {
        return -1;
    }
}

// NOLINTEND(performance-unnecessary-value-param)

void ZelNet::ZelHttpClient::GetHttpContent(HTTP_MAP_KEY key, std::string& value) const {
    const bool known = m_pImpl && m_pImpl->m_promised && key == HTTP_KEY_CONTENT_LENGTH;
    value = known ? std::to_string(*m_pImpl->m_promised) : std::string();
}

int ZelNet::ZelHttpClient::ReadData(char* buf, int size) {
    if (!m_pImpl || buf == nullptr || size <= 0) {
        return 0;
    }
    const std::size_t count =
        m_pImpl->m_strBody.copy(buf, static_cast<std::size_t>(size), m_pImpl->m_readBytes);
    m_pImpl->m_readBytes += count;
    return static_cast<int>(count);
}
