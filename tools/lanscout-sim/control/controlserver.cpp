#include "tools/lanscout-sim/control/controlserver.h"

#include <fmt/format.h>
#include <microhttpd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <utility>

#include "tools/lanscout-sim/base/setuperror.h"
#include "tools/lanscout-sim/network/descriptor.h"

namespace lansim {
namespace {

constexpr int kBacklog = 16;
constexpr unsigned kMostConnections = 32;
constexpr unsigned kIdleSeconds = 30;
constexpr unsigned kTooLarge = 413;
// A scenario of thousands of devices is less.
constexpr std::size_t kLargestBody = 1 << 20;

struct ResponseFree {
    void operator()(MHD_Response* response) const { MHD_destroy_response(response); }
};

// What has come of a request's body.
struct Upload {
    std::string body;
    bool isTooLarge = false;
};

MHD_Result Answer(MHD_Connection* connection, const ControlAnswer& answer) {
    std::string json = answer.json;
    const std::unique_ptr<MHD_Response, ResponseFree> response(
        MHD_create_response_from_buffer(json.size(), json.data(), MHD_RESPMEM_MUST_COPY));
    MHD_add_response_header(response.get(), MHD_HTTP_HEADER_CONTENT_TYPE, "application/json");
    return MHD_queue_response(connection, answer.status, response.get());
}

MHD_Result OnRequest(void* self, MHD_Connection* connection, const char* url, const char* method,
                     const char*, const char* data, std::size_t* size, void** state) {
    if (*state == nullptr) {
        *state = std::make_unique<Upload>().release();
        return MHD_YES;
    }
    auto* upload = static_cast<Upload*>(*state);
    if (*size > 0) {
        upload->isTooLarge = upload->isTooLarge || upload->body.size() + *size > kLargestBody;
        if (!upload->isTooLarge) {
            upload->body.append(data, *size);
        }
        *size = 0;
        return MHD_YES;
    }
    if (upload->isTooLarge) {
        return Answer(connection,
                      {kTooLarge, "{\"error\": \"the body has more than a mebibyte\"}\n"});
    }
    return Answer(connection,
                  static_cast<ControlServer*>(self)->Handle({method, url, upload->body}));
}

void OnEnd(void*, MHD_Connection*, void** state, MHD_RequestTerminationCode) {
    const std::unique_ptr<Upload> owned(static_cast<Upload*>(*state));
    *state = nullptr;
}

sockaddr_un AddressOf(const std::string& file) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (file.empty() || file.size() >= sizeof address.sun_path) {
        throw SetupError(fmt::format("the control socket's name \"{}\" has not 1 to {} bytes", file,
                                     sizeof address.sun_path - 1));
    }
    file.copy(static_cast<char*>(address.sun_path), file.size());
    return address;
}

// Whether a program still listens there.
bool IsServed(const sockaddr_un& address) {
    const lansim::Descriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return connect(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

lansim::Descriptor Listen(const std::string& file) {
    const sockaddr_un address = AddressOf(file);
    struct stat status {};
    if (lstat(file.c_str(), &status) == 0 && S_ISSOCK(status.st_mode)) {
        if (IsServed(address)) {
            throw SetupError(fmt::format("another simulator has the control socket {}", file));
        }
        unlink(file.c_str());
    }
    lansim::Descriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const mode_t former = umask(0177);
    const bool isBound =
        bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    const int error = errno;
    umask(former);
    errno = error;
    if (!isBound || listen(fd.Get(), kBacklog) != 0) {
        FailWithErrno("cannot make the control socket " + file);
    }
    return fd;
}

}  // namespace

ControlServer::ControlServer(const std::string& file, ControlHandler handler)
    : m_file(file), m_handler(std::move(handler)) {
    lansim::Descriptor listener = Listen(file);
    m_daemon = MHD_start_daemon(
        MHD_USE_EPOLL, 0, nullptr, nullptr, OnRequest, this, MHD_OPTION_LISTEN_SOCKET,
        listener.Get(), MHD_OPTION_NOTIFY_COMPLETED, OnEnd, nullptr, MHD_OPTION_CONNECTION_LIMIT,
        kMostConnections, MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds, MHD_OPTION_END);
    if (m_daemon == nullptr) {
        unlink(file.c_str());
        throw SetupError("cannot start the server of the control socket " + file);
    }
    listener.Release();  // closed by the daemon
}

ControlServer::~ControlServer() {
    MHD_stop_daemon(m_daemon);
    unlink(m_file.c_str());
}

int ControlServer::Descriptor() const {
    return MHD_get_daemon_info(m_daemon, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
}

std::optional<TimePoint> ControlServer::NextDue(TimePoint now) const {
    MHD_UNSIGNED_LONG_LONG milliseconds = 0;
    if (MHD_get_timeout(m_daemon, &milliseconds) != MHD_YES) {
        return std::nullopt;
    }
    return now + std::chrono::milliseconds(milliseconds);
}

void ControlServer::Run() {
    MHD_run(m_daemon);
}

}  // namespace lansim
