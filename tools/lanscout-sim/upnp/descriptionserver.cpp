#include "tools/lanscout-sim/upnp/descriptionserver.h"

#include <fmt/format.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <string_view>

#include "tools/lanscout-sim/base/setuperror.h"

namespace lansim {
namespace {

constexpr int kEventsAtOnce = 64;
constexpr int kBacklog = 128;
// A SOAP request of a client is some kilobytes.
constexpr std::size_t kLargestRequest = 65536;
constexpr unsigned kTooLarge = 413;  // its name differs between releases
constexpr std::uint64_t kHugeBytes = 64ULL * 1024 * 1024;
constexpr std::size_t kBlockBytes = 16384;
// Small, so that a description comes in several.
constexpr std::size_t kChunkBytes = 100;
constexpr const char* kElsewhere = "http://203.0.113.7/description.xml";

struct ResponseFree {
    void operator()(MHD_Response* response) const { MHD_destroy_response(response); }
};
using Response = std::unique_ptr<MHD_Response, ResponseFree>;

Response FromText(const std::string& text) {
    // MHD copies the bytes; its interface lacks the const.
    return Response(MHD_create_response_from_buffer(text.size(), const_cast<char*>(text.data()),
                                                    MHD_RESPMEM_MUST_COPY));
}

ssize_t FillHuge(void*, std::uint64_t, char* buffer, std::size_t size) {
    std::memset(buffer, ' ', size);
    return static_cast<ssize_t>(size);
}

ssize_t FillFromString(void* text, std::uint64_t at, char* buffer, std::size_t size) {
    const auto& source = *static_cast<const std::string*>(text);
    if (at >= source.size()) {
        return MHD_CONTENT_READER_END_OF_STREAM;
    }
    return static_cast<ssize_t>(source.copy(buffer, std::min(size, kChunkBytes), at));
}

void FreeString(void* text) {
    const std::unique_ptr<std::string> owned(static_cast<std::string*>(text));
}

// No length is known beforehand, which makes MHD send it in chunks.
Response InChunks(const std::string& text) {
    return Response(MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kChunkBytes, FillFromString,
                                                      std::make_unique<std::string>(text).release(),
                                                      FreeString));
}

Endpoint LocalEndOf(int connection) {
    sockaddr_in local{};
    socklen_t size = sizeof local;
    getsockname(connection, reinterpret_cast<sockaddr*>(&local), &size);
    return FromSockaddr(local);
}

struct Answer {
    unsigned status = MHD_HTTP_OK;
    Response response;
};

Answer AnswerOf(const UpnpDevice& device, std::string_view path) {
    using enum Misbehaviour;
    if (path != "/description.xml" || device.Does(UpnpDescriptionNotFound)) {
        return {MHD_HTTP_NOT_FOUND, FromText("not found\n")};
    }
    if (device.Does(UpnpDescriptionHuge)) {
        return {MHD_HTTP_OK, Response(MHD_create_response_from_callback(
                                 kHugeBytes, kBlockBytes, FillHuge, nullptr, nullptr))};
    }
    if (device.Does(UpnpDescriptionChunked)) {
        return {MHD_HTTP_OK, InChunks(DescriptionOf(device))};
    }
    if (device.Does(UpnpDescriptionRedirect)) {
        Answer answer{MHD_HTTP_FOUND, FromText("")};
        MHD_add_response_header(answer.response.get(), MHD_HTTP_HEADER_LOCATION, kElsewhere);
        return answer;
    }
    return {MHD_HTTP_OK, FromText(DescriptionOf(device))};
}

// What has come of a request's body.
struct Upload {
    std::string body;
    bool isTooLarge = false;
};

MHD_Result Queue(MHD_Connection* connection, unsigned status, MHD_Response* response,
                 const char* contentType) {
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, contentType);
    return MHD_queue_response(connection, status, response);
}

MHD_Result AnswerAll(DescriptionServer& server, MHD_Connection* connection, const char* url,
                     const char* method, const Upload& upload) {
    const auto* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    UpnpDevice* device = server.DeviceAt(info->connect_fd);
    const bool isOthers = device == nullptr || std::string_view(url).starts_with("/onvif/");
    const auto other =
        isOthers ? server.AskOthers({LocalEndOf(info->connect_fd), method, url, upload.body})
                 : std::nullopt;
    if (other) {
        const Response response = FromText(other->body);
        return Queue(connection, other->status, response.get(), other->contentType.c_str());
    }
    if (device == nullptr) {
        const Response response = FromText("not found\n");
        return Queue(connection, MHD_HTTP_NOT_FOUND, response.get(), "text/plain");
    }
    ++device->descriptionsServed;
    const Answer answer = AnswerOf(*device, url);
    return Queue(connection, answer.status, answer.response.get(), "text/xml; charset=\"utf-8\"");
}

MHD_Result OnRequest(void* self, MHD_Connection* connection, const char* url, const char* method,
                     const char*, const char* data, std::size_t* size, void** state) {
    if (*state == nullptr) {
        *state = std::make_unique<Upload>().release();
        return MHD_YES;
    }
    auto* upload = static_cast<Upload*>(*state);
    if (*size > 0) {
        upload->isTooLarge = upload->isTooLarge || upload->body.size() + *size > kLargestRequest;
        if (!upload->isTooLarge) {
            upload->body.append(data, *size);
        }
        *size = 0;
        return MHD_YES;
    }
    if (upload->isTooLarge) {
        const Response response = FromText("too large\n");
        return Queue(connection, kTooLarge, response.get(), "text/plain");
    }
    return AnswerAll(*static_cast<DescriptionServer*>(self), connection, url, method, *upload);
}

void OnEnd(void*, MHD_Connection*, void** state, MHD_RequestTerminationCode) {
    const std::unique_ptr<Upload> owned(static_cast<Upload*>(*state));
    *state = nullptr;
}

}  // namespace

DescriptionServer::DescriptionServer(std::deque<UpnpDevice>& devices)
    : m_all(devices),
      m_ready(epoll_create1(EPOLL_CLOEXEC)),
      m_daemon(MHD_start_daemon(MHD_USE_EPOLL | MHD_USE_NO_LISTEN_SOCKET, 0, nullptr, nullptr,
                                OnRequest, this, MHD_OPTION_NOTIFY_COMPLETED, OnEnd, nullptr,
                                MHD_OPTION_END)) {
    if (m_daemon == nullptr) {
        throw SetupError("cannot start the HTTP server of the UPnP devices");
    }
    NoticeChanges();
    Watch(MHD_get_daemon_info(m_daemon, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd);
}

DescriptionServer::~DescriptionServer() {
    MHD_stop_daemon(m_daemon);
}

void DescriptionServer::NoticeChanges() {
    m_devices.clear();
    for (auto& device : m_all) {
        if (device.isPresent) {
            m_devices.emplace(device.ip, &device);
        }
    }
}

void DescriptionServer::ListenToo(const Endpoint& at) {
    if (!m_endpoints.contains(at)) {
        Listen(at);
    }
}

void DescriptionServer::Watch(int fd) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd;
    epoll_ctl(m_ready.Get(), EPOLL_CTL_ADD, fd, &event);
}

void DescriptionServer::Listen(const Endpoint& at) {
    lansim::Descriptor fd(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int on = 1;
    const sockaddr_in address = ToSockaddr(at);
    if (setsockopt(fd.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(fd.Get(), kBacklog) != 0) {
        throw SetupError(fmt::format("cannot serve HTTP at {} port {}: {}", ToText(at.ip), at.port,
                                     std::strerror(errno)));
    }
    Watch(fd.Get());
    const int number = fd.Get();
    m_listeners.emplace(number, std::move(fd));
    m_endpoints.insert(at);
}

UpnpDevice* DescriptionServer::DeviceAt(int connection) const {
    const Endpoint local = LocalEndOf(connection);
    const auto found = m_devices.find(local.ip.V4());
    return found == m_devices.end() || found->second->port != local.port ? nullptr : found->second;
}

std::optional<TimePoint> DescriptionServer::NextDue(TimePoint now) const {
    std::optional<TimePoint> next;
    const auto sooner = [&](TimePoint due) { next = next ? std::min(*next, due) : due; };
    MHD_UNSIGNED_LONG_LONG milliseconds = 0;
    if (MHD_get_timeout(m_daemon, &milliseconds) == MHD_YES) {
        sooner(now + std::chrono::milliseconds(milliseconds));
    }
    for (const auto& [fd, answer] : m_rawAnswers) {
        if (answer.NextDue()) {
            sooner(*answer.NextDue());
        }
    }
    return next;
}

void DescriptionServer::Run(TimePoint now) {
    std::array<epoll_event, kEventsAtOnce> events{};
    const int count = epoll_wait(m_ready.Get(), events.data(), kEventsAtOnce, 0);
    for (int i = 0; i < count; ++i) {
        const int fd = events.at(static_cast<std::size_t>(i)).data.fd;
        if (m_listeners.contains(fd)) {
            Accept(fd);
        }
    }
    MHD_run(m_daemon);
    RunRawAnswers(now);
}

void DescriptionServer::Accept(int listener) {
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    lansim::Descriptor connection(
        accept4(listener, reinterpret_cast<sockaddr*>(&peer), &size, SOCK_NONBLOCK | SOCK_CLOEXEC));
    UpnpDevice* device = connection.IsOpen() ? DeviceAt(connection.Get()) : nullptr;
    if (!connection.IsOpen()) {
        return;
    }
    if (device == nullptr || !HasRawAnswer(*device)) {
        MHD_add_connection(m_daemon, connection.Release(), reinterpret_cast<sockaddr*>(&peer),
                           size);
        return;
    }
    ++device->descriptionsServed;
    Watch(connection.Get());
    const int fd = connection.Get();
    m_rawAnswers.emplace(fd, RawAnswer(std::move(connection), *device));
}

void DescriptionServer::RunRawAnswers(TimePoint now) {
    for (auto answer = m_rawAnswers.begin(); answer != m_rawAnswers.end();) {
        answer = answer->second.Run(now) ? std::next(answer) : m_rawAnswers.erase(answer);
    }
}

}  // namespace lansim
