#include "tests/unit/support/fakenetlink.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace FakeNetlink {
namespace {

mnl_socket* Socket() {
    static int socket = 0;
    return reinterpret_cast<mnl_socket*>(&socket);
}

}  // namespace

Built::Built(int type, int flags) : m_message(mnl_nlmsg_put_header(m_buffer)) {
    m_message->nlmsg_type = static_cast<std::uint16_t>(type);
    m_message->nlmsg_flags = static_cast<std::uint16_t>(flags);
}

void* Built::Extra(std::size_t bytes) {
    return mnl_nlmsg_put_extra_header(m_message, bytes);
}

Built& Built::With(int attribute, const std::string& bytes) {
    mnl_attr_put(m_message, static_cast<std::uint16_t>(attribute), bytes.size(), bytes.data());
    return *this;
}

Built& Built::Answering() {
    const std::string& request = Current().requests.back();
    m_message->nlmsg_seq = reinterpret_cast<const nlmsghdr*>(request.data())->nlmsg_seq;
    return *this;
}

std::string Built::Bytes() const {
    std::string bytes(reinterpret_cast<const char*>(m_message), m_message->nlmsg_len);
    bytes.resize(MNL_ALIGN(bytes.size()));
    return bytes;
}

void Kernel::Done(int flags) {
    Built done(NLMSG_DONE, flags);
    done.Extra(sizeof(int));
    datagrams.push_back(done.Answering().Bytes());
}

void Kernel::Refuses(int error) {
    Built answer(NLMSG_ERROR);
    static_cast<nlmsgerr*>(answer.Extra(sizeof(nlmsgerr)))->error = -error;
    datagrams.push_back(answer.Answering().Bytes());
}

Kernel& Current() {
    static Kernel kernel;
    return kernel;
}

}  // namespace FakeNetlink

using FakeNetlink::Current;

extern "C" {

mnl_socket* __wrap_mnl_socket_open2(int /*family*/, int /*flags*/) {
    errno = Current().openError;
    Current().open += errno == 0 ? 1 : 0;
    return errno == 0 ? FakeNetlink::Socket() : nullptr;
}

int __wrap_mnl_socket_bind(mnl_socket* /*socket*/, unsigned int groups, pid_t /*pid*/) {
    Current().groups = groups;
    errno = Current().bindError;
    return errno == 0 ? 0 : -1;
}

int __wrap_mnl_socket_close(mnl_socket* /*socket*/) {
    --Current().open;
    return 0;
}

int __wrap_mnl_socket_get_fd(const mnl_socket* /*socket*/) {
    return -1;
}

ssize_t __wrap_mnl_socket_sendto(const mnl_socket* /*socket*/, const void* bytes, size_t count) {
    if (Current().sendError != 0) {
        errno = Current().sendError;
        return -1;
    }
    Current().requests.emplace_back(static_cast<const char*>(bytes), count);
    if (Current().onRequest) {
        Current().onRequest();
    }
    return static_cast<ssize_t>(count);
}

ssize_t __wrap_mnl_socket_recvfrom(const mnl_socket* /*socket*/, void* buffer, size_t size) {
    auto& datagrams = Current().datagrams;
    if (datagrams.empty()) {
        errno = EAGAIN;
        return -1;
    }
    const std::string datagram = datagrams.front();
    datagrams.pop_front();
    if (datagram.empty()) {
        errno = Current().errors.front();
        Current().errors.pop_front();
        return -1;
    }
    const std::size_t count = std::min(size, datagram.size());
    std::memcpy(buffer, datagram.data(), count);
    return static_cast<ssize_t>(count);
}
}
