#include "tests/unit/support/scriptedserver.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

namespace {

constexpr int kPatienceMs = 20'000;  // nothing that a test does takes this long

sockaddr_in Loopback() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

std::string ReadRequest(int fd) {
    std::string request;
    char buffer[4096];
    pollfd readable{fd, POLLIN, 0};
    while (request.find("\r\n\r\n") == std::string::npos && poll(&readable, 1, kPatienceMs) > 0) {
        const ssize_t count = recv(fd, buffer, sizeof buffer, 0);
        if (count <= 0) {
            break;
        }
        request.append(buffer, static_cast<std::size_t>(count));
    }
    return request;
}

}  // namespace

bool ScriptedConnection::Send(std::string_view bytes) const {
    while (!bytes.empty()) {
        pollfd writable{m_fd, POLLOUT, 0};
        if (poll(&writable, 1, kPatienceMs) <= 0) {
            return false;
        }
        const ssize_t count = send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

void ScriptedConnection::SendForEver(std::string_view bytes) const {
    while (Send(bytes)) {
    }
}

bool ScriptedConnection::WaitForClose(int milliseconds) const {
    pollfd closed{m_fd, POLLRDHUP, 0};
    return poll(&closed, 1, milliseconds) > 0;
}

void ScriptedConnection::ResetOnClose() const {
    const linger reset{1, 0};
    setsockopt(m_fd, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
}

ScriptedServer::ScriptedServer(Script script)
    : m_script(std::move(script)), m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = Loopback();
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(m_listener, generic, size) != 0 || listen(m_listener, 8) != 0 ||
        getsockname(m_listener, generic, &size) != 0) {
        throw std::runtime_error("no listening socket on 127.0.0.1");
    }
    m_port = ntohs(address.sin_port);
    m_thread = std::thread([this] { Serve(); });
}

ScriptedServer::ScriptedServer(std::string answer)
    : ScriptedServer([answer = std::move(answer)](const ScriptedConnection& connection) {
          connection.Send(answer);
      }) {}

ScriptedServer::~ScriptedServer() {
    shutdown(m_listener, SHUT_RDWR);  // wakes accept
    m_thread.join();
    close(m_listener);
}

std::vector<std::string> ScriptedServer::Requests() const {
    const std::lock_guard lock(m_mutex);
    return m_vecRequest;
}

void ScriptedServer::Serve() {
    for (int fd = -1; (fd = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0; close(fd)) {
        std::string request = ReadRequest(fd);
        {
            const std::lock_guard lock(m_mutex);
            m_vecRequest.push_back(std::move(request));
        }
        m_script(ScriptedConnection(fd));
    }
}
