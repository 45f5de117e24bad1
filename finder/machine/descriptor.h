// A file descriptor that is closed when its owner goes.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace Lanscout {

// Closing never changes errno, so what failed before can still be told.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) noexcept : m_fd(fd) {}
    Descriptor(Descriptor&& other) noexcept : m_fd(other.Release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) {
            Close();
            m_fd = other.Release();
        }
        return *this;
    }
    ~Descriptor() { Close(); }

    // Negative when nothing is owned.
    int Fd() const noexcept { return m_fd; }
    explicit operator bool() const noexcept { return m_fd >= 0; }

    // The caller owns what is returned.
    [[nodiscard]] int Release() noexcept { return std::exchange(m_fd, -1); }

    void Close() noexcept {
        if (m_fd >= 0) {
            const int error = errno;
            ::close(Release());
            errno = error;
        }
    }

private:
    int m_fd = -1;
};

}  // namespace Lanscout
