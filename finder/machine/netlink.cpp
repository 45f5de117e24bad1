#include "finder/machine/netlink.h"

#include <array>
#include <cerrno>
#include <system_error>

namespace Lanscout {
namespace {

constexpr std::size_t kLargestDatagram = 32768;  // the kernel's own limit for a part of a dump
constexpr int kReceiveBufferBytes = 1 << 20;

[[noreturn]] void Fail(const char* what, int error) {
    throw std::system_error(error, std::generic_category(), what);
}

// Notices come in bursts. What the administrator's limit forbids is tried too.
void EnlargeBuffer(mnl_socket* socket) {
    for (const int option : {SO_RCVBUF, SO_RCVBUFFORCE}) {
        int bytes = kReceiveBufferBytes;
        setsockopt(mnl_socket_get_fd(socket), SOL_SOCKET, option, &bytes, sizeof bytes);
    }
}

int ErrorOf(const nlmsghdr& message) {
    if (mnl_nlmsg_get_payload_len(&message) < sizeof(nlmsgerr)) {
        return EBADMSG;
    }
    return -static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(&message))->error;
}

}  // namespace

Netlink::Netlink(int family, unsigned int groups)
    : m_socket(mnl_socket_open2(family, SOCK_CLOEXEC | SOCK_NONBLOCK)) {
    if (!m_socket) {
        Fail("no netlink socket", errno);
    }
    EnlargeBuffer(m_socket.get());
    if (mnl_socket_bind(m_socket.get(), groups, MNL_SOCKET_AUTOPID) != 0) {
        Fail("the netlink socket cannot be bound", errno);
    }
}

int Netlink::Fd() const {
    return mnl_socket_get_fd(m_socket.get());
}

void Netlink::Send(nlmsghdr& request) {
    request.nlmsg_seq = ++m_number;
    if (mnl_socket_sendto(m_socket.get(), &request, request.nlmsg_len) < 0) {
        Fail("the kernel took no netlink request", errno);
    }
}

Netlink::Got Netlink::ReadOne(const nlmsghdr& message, const Take& take) const {
    if (!mnl_nlmsg_seq_ok(&message, m_number)) {
        return Got::Messages;  // a late answer to an earlier request
    }
    switch (message.nlmsg_type) {
        case NLMSG_DONE:
            return (message.nlmsg_flags & NLM_F_DUMP_INTR) != 0 ? Got::Interrupted : Got::End;
        case NLMSG_ERROR:
            if (const int error = ErrorOf(message); error != 0) {
                Fail("the kernel refused a netlink request", error);
            }
            return Got::End;
        default:
            if (message.nlmsg_type >= NLMSG_MIN_TYPE) {
                take(message);
            }
            return Got::Messages;
    }
}

Netlink::Got Netlink::Receive(const Take& take) {
    alignas(nlmsghdr) std::array<char, kLargestDatagram> buffer;  // NOLINT: filled next
    const ssize_t count = mnl_socket_recvfrom(m_socket.get(), buffer.data(), buffer.size());
    if (count < 0) {
        const int error = errno;
        if (error == EAGAIN || error == EINTR) {
            return Got::Nothing;
        }
        if (error == ENOBUFS || error == ENOSPC) {
            return Got::Lost;
        }
        Fail("nothing can be received from the kernel", error);
    }
    int left = static_cast<int>(count);
    const auto* message = reinterpret_cast<const nlmsghdr*>(buffer.data());
    Got got = Got::Messages;
    for (; mnl_nlmsg_ok(message, left) && got == Got::Messages;
         message = mnl_nlmsg_next(message, &left)) {
        got = ReadOne(*message, take);
    }
    return got;
}

void Netlink::Ask(nlmsghdr& request, const Take& take) {
    Send(request);
    Got got = Got::Messages;
    while (got == Got::Messages || got == Got::Lost) {
        got = Receive(take);
    }
}

void ForEachAttribute(
    const nlmsghdr& message, std::size_t headerBytes,
    const std::function<void(int type, std::span<const unsigned char> bytes)>& take) {
    const auto* const end = static_cast<const char*>(mnl_nlmsg_get_payload_tail(&message));
    const auto* attribute =
        static_cast<const nlattr*>(mnl_nlmsg_get_payload_offset(&message, headerBytes));
    while (
        mnl_attr_ok(attribute, static_cast<int>(end - reinterpret_cast<const char*>(attribute)))) {
        take(mnl_attr_get_type(attribute),
             {static_cast<const unsigned char*>(mnl_attr_get_payload(attribute)),
              mnl_attr_get_payload_len(attribute)});
        attribute = mnl_attr_next(attribute);
    }
}

}  // namespace Lanscout
