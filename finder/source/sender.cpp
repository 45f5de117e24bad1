#include "finder/source/sender.h"

#include <unistd.h>

#include <cerrno>

namespace Lanscout {

void Sender::Send(const Message& message) {
    const std::string line = EncodeMessage(message);
    const std::lock_guard lock(m_mutex);
    for (std::size_t sent = 0; sent < line.size();) {
        const ssize_t count = write(m_fd, line.data() + sent, line.size() - sent);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            _exit(1);  // nobody reads any more: there is nothing left to search for
        }
        sent += static_cast<std::size_t>(count);
    }
}

}  // namespace Lanscout
