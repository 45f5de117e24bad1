// How a source's process sends to its parent what it finds.
#pragma once

#include <mutex>

#include "finder/source/message.h"

namespace Lanscout {

// Any thread may send. A line is written whole or, when the parent is gone, not at all.
class Sender {
public:
    explicit Sender(int fd) : m_fd(fd) {}
    void Send(const Message& message);

    // Where the process reads what the tool writes to it.
    int Fd() const { return m_fd; }

private:
    std::mutex m_mutex;
    int m_fd;
};

}  // namespace Lanscout
