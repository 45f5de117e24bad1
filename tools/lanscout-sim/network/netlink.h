// One question to the kernel's routing and device tables, and its answer.
#pragma once

#include <libmnl/libmnl.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>

namespace lansim {

// A message to rtnetlink: its header first, then its attributes.
class NetlinkMessage {
public:
    NetlinkMessage(std::uint16_t type, std::uint16_t flags);
    NetlinkMessage(const NetlinkMessage&) = delete;
    NetlinkMessage& operator=(const NetlinkMessage&) = delete;

    // The fixed part after the header, all zeros until it is filled in.
    template <typename T>
    T& Extra() {
        return *static_cast<T*>(mnl_nlmsg_put_extra_header(m_header, sizeof(T)));
    }
    template <typename T>
    void Put(std::uint16_t attribute, const T& value) {
        mnl_attr_put(m_header, attribute, sizeof value, &value);
    }

    nlmsghdr* Header() { return m_header; }

private:
    alignas(nlmsghdr) std::array<char, 512> m_bytes{};
    nlmsghdr* m_header;
};

// A connection to the tables of the network namespace that it was opened in.
class Netlink {
public:
    // Throws SetupError.
    Netlink();

    // Whether the kernel has done it; errno says why not.
    bool Do(NetlinkMessage& message);

private:
    struct Close {
        void operator()(mnl_socket* socket) const { mnl_socket_close(socket); }
    };
    std::unique_ptr<mnl_socket, Close> m_socket;
};

}  // namespace lansim
