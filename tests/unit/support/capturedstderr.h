// Standard error sent into memory for as long as the object lives.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

class CapturedStderr {
public:
    CapturedStderr() : CapturedStderr(memfd_create("stderr", MFD_CLOEXEC)) {}
    // Takes over the descriptor, which stands for standard error meanwhile.
    explicit CapturedStderr(int fd) : m_fd(fd), m_saved(dup(STDERR_FILENO)) {
        dup2(m_fd, STDERR_FILENO);
    }
    ~CapturedStderr() {
        dup2(m_saved, STDERR_FILENO);
        close(m_saved);
        close(m_fd);
    }
    CapturedStderr(const CapturedStderr&) = delete;
    CapturedStderr& operator=(const CapturedStderr&) = delete;

    std::string Text() const {
        std::string text(static_cast<std::size_t>(lseek(m_fd, 0, SEEK_END)), '\0');
        const ssize_t count = pread(m_fd, text.data(), text.size(), 0);
        text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
        return text;
    }

    // The lines without their line breaks; text behind the last break is a line, too.
    std::vector<std::string> Lines() const {
        std::vector<std::string> lines;
        const std::string text = Text();
        for (std::size_t from = 0; from < text.size();) {
            const std::size_t end = std::min(text.find('\n', from), text.size());
            lines.push_back(text.substr(from, end - from));
            from = end + 1;
        }
        return lines;
    }

private:
    int m_fd;
    int m_saved;
};
