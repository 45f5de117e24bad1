// A netlink socket, by libmnl.
#pragma once

#include <libmnl/libmnl.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <span>

namespace Lanscout {

// Nothing here waits: the kernel has a part of its answer ready before each call returns. What
// fails throws std::system_error.
class Netlink {
public:
    enum class Got {
        Messages,     // and there may be more
        Nothing,      // no message waits
        Lost,         // notices were lost: whoever keeps a table has to ask for all of it again
        End,          // of the answer to what was sent
        Interrupted,  // the same, but the table changed while the kernel read it out: ask again
    };
    using Take = std::function<void(const nlmsghdr& message)>;

    // A socket of that family (NETLINK_ROUTE ...), with the notices of the groups of that mask.
    explicit Netlink(int family, unsigned int groups = 0);

    int Fd() const;

    // Numbers the request, so that its answer is known.
    void Send(nlmsghdr& request);

    // The messages of one datagram. An answer that is an error throws.
    Got Receive(const Take& take);

    // Sends the request and takes its whole answer.
    void Ask(nlmsghdr& request, const Take& take);

private:
    struct Close {
        void operator()(mnl_socket* socket) const { mnl_socket_close(socket); }
    };

    Got ReadOne(const nlmsghdr& message, const Take& take) const;

    std::unique_ptr<mnl_socket, Close> m_socket;
    unsigned int m_number = 0;
};

// Each attribute behind the message's own header of that size: its type and its bytes.
void ForEachAttribute(
    const nlmsghdr& message, std::size_t headerBytes,
    const std::function<void(int type, std::span<const unsigned char> bytes)>& take);

}  // namespace Lanscout
