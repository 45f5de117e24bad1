#include "tools/lanscout-sim/network/netlink.h"

#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <vector>

#include "tools/lanscout-sim/base/setuperror.h"

namespace lansim {

NetlinkMessage::NetlinkMessage(std::uint16_t type, std::uint16_t flags)
    : m_header(mnl_nlmsg_put_header(m_bytes.data())) {
    m_header->nlmsg_type = type;
    m_header->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
}

Netlink::Netlink() : m_socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC)) {
    if (!m_socket || mnl_socket_bind(m_socket.get(), 0, MNL_SOCKET_AUTOPID) != 0) {
        FailWithErrno("cannot open a netlink socket");
    }
}

bool Netlink::Do(NetlinkMessage& message) {
    if (mnl_socket_sendto(m_socket.get(), message.Header(), message.Header()->nlmsg_len) < 0) {
        return false;
    }
    std::vector<char> buffer(static_cast<std::size_t>(MNL_SOCKET_BUFFER_SIZE));
    const auto size = mnl_socket_recvfrom(m_socket.get(), buffer.data(), buffer.size());
    return size >= 0 && mnl_cb_run(buffer.data(), static_cast<std::size_t>(size), 0,
                                   mnl_socket_get_portid(m_socket.get()), nullptr, nullptr) >= 0;
}

}  // namespace lansim
