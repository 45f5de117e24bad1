#pragma once

#include <unistd.h>

#include <utility>

namespace lansim {

// Owns a file descriptor.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : m_fd(fd) {}
    Descriptor(Descriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    ~Descriptor() {
        if (m_fd >= 0)
            close(m_fd);
    }

    int Get() const { return m_fd; }
    int Release() { return std::exchange(m_fd, -1); }
    bool IsOpen() const { return m_fd >= 0; }

private:
    int m_fd = -1;
};

}  // namespace lansim
