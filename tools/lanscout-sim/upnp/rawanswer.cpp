#include "tools/lanscout-sim/upnp/rawanswer.h"

#include <fmt/format.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <utility>

namespace lansim {
namespace {

constexpr std::chrono::seconds kDribblePause{1};
constexpr std::size_t kLongestRequest = 8192;

std::string Head(std::size_t contentLength) {
    return fmt::format(
        "HTTP/1.1 200 OK\r\nContent-Type: text/xml; charset=\"utf-8\"\r\nContent-Length: {}\r\n"
        "Connection: close\r\n\r\n",
        contentLength);
}

}  // namespace

bool HasRawAnswer(const UpnpDevice& device) {
    using enum Misbehaviour;
    return device.Does(UpnpDescriptionSlow) || device.Does(UpnpDescriptionLyingLength) ||
           device.Does(UpnpDescriptionReset);
}

RawAnswer::RawAnswer(lansim::Descriptor connection, const UpnpDevice& device)
    : m_connection(std::move(connection)), m_device(device) {}

bool RawAnswer::Run(TimePoint now) {
    if (!ReadRequest()) {
        return false;
    }
    if (!m_isAnswering && m_request.find("\r\n\r\n") == std::string::npos) {
        return true;
    }
    if (!m_isAnswering) {
        Prepare(now);
    }
    return Dribble(now);
}

bool RawAnswer::ReadRequest() {
    std::array<char, 1024> buffer{};
    const ssize_t size =
        recv(m_connection.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (size == 0 || (size < 0 && errno != EAGAIN)) {
        return false;
    }
    if (size > 0) {
        m_request.append(buffer.data(), static_cast<std::size_t>(size));
    }
    return m_request.size() <= kLongestRequest;
}

void RawAnswer::Prepare(TimePoint now) {
    constexpr std::size_t kLie = 2147483647;
    m_isAnswering = true;
    const std::string description = DescriptionOf(m_device);
    if (m_device.Does(Misbehaviour::UpnpDescriptionSlow)) {
        Send(Head(description.size()));
        m_rest = description;
        m_nextDue = now;
    } else if (m_device.Does(Misbehaviour::UpnpDescriptionLyingLength)) {
        Send(Head(kLie) + description);
    } else {
        Send(Head(description.size()) + description.substr(0, description.size() / 2));
        Reset();
    }
}

bool RawAnswer::Dribble(TimePoint now) {
    if (m_rest.empty()) {
        return false;
    }
    if (now < *m_nextDue) {
        return true;
    }
    m_nextDue = now + kDribblePause;
    const bool isSent = Send(m_rest.substr(0, 1));
    m_rest.erase(0, 1);
    return isSent;
}

bool RawAnswer::Send(std::string_view bytes) const {
    return send(m_connection.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
}

// Closing with no time to linger sends RST instead of FIN.
void RawAnswer::Reset() const {
    const linger none{1, 0};
    setsockopt(m_connection.Get(), SOL_SOCKET, SO_LINGER, &none, sizeof none);
}

}  // namespace lansim
