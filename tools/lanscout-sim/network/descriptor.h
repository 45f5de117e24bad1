// The one owner of a file descriptor in the simulator.
#pragma once

#include <unistd.h>

#include <utility>

namespace lansim {

// Closes it when it goes; an assignment closes what was there.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : m_fd(fd) {}
    Descriptor(Descriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) {
            Close();
            m_fd = other.Release();
        }
        return *this;
    }
    ~Descriptor() { Close(); }

    int Get() const { return m_fd; }
    int Release() { return std::exchange(m_fd, -1); }
    bool IsOpen() const { return m_fd >= 0; }

private:
    void Close() {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }

    int m_fd = -1;
};

}  // namespace lansim
