#include "tools/lanscout/output/patientwriter.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <stdexcept>

namespace Lanscout {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kLookAgain{200};

// The same pipe or terminal without blocking. A flag on the descriptor itself would be one for all
// who share it, the user's shell among them.
Descriptor OpenAgain(int fd) {
    return Descriptor(open(fmt::format("/proc/self/fd/{}", fd).c_str(),
                           O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

// Waits for `fd` (negative: for nothing) or the wake; whether the user wants an end.
bool WaitFor(int fd, const Wake& wake, milliseconds longest) {
    std::array<pollfd, 2> entries{{{fd, POLLOUT, 0}, {wake.fd, POLLIN, 0}}};
    poll(entries.data(), entries.size(), static_cast<int>(longest.count()));
    return wake.wantsToEnd && wake.wantsToEnd();
}

}  // namespace

PatientWriter::PatientWriter(int fd, Wake wake, milliseconds lastPatience)
    : m_fd(fd), m_wake(std::move(wake)), m_lastPatience(lastPatience) {
    struct stat status {};
    if (fstat(fd, &status) != 0) {
        return;
    }
    m_isSocket = S_ISSOCK(status.st_mode);
    if (S_ISFIFO(status.st_mode) || isatty(fd) == 1) {
        m_own = OpenAgain(fd);
    }
}

// What could not be opened again is written in pieces that a pipe with any room takes at once.
long PatientWriter::WriteSome(std::string_view text) const {
    if (m_isSocket) {
        return send(m_fd, text.data(), text.size(), MSG_DONTWAIT);
    }
    if (m_own) {
        return write(m_own.Fd(), text.data(), text.size());
    }
    return write(m_fd, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
}

// False when the user does not want to wait any longer.
bool PatientWriter::WaitUntilWritable() {
    pollfd entry{m_fd, POLLOUT, 0};
    while (poll(&entry, 1, 0) == 0) {
        const auto now = Clock::now();
        if (!m_end && WaitFor(m_fd, m_wake, kLookAgain)) {
            m_end = Clock::now() + m_lastPatience;
        } else if (m_end && now >= *m_end) {
            return false;
        } else if (m_end) {
            poll(&entry, 1,
                 static_cast<int>(std::chrono::ceil<milliseconds>(*m_end - now).count()));
        }
    }
    return true;
}

int PatientWriter::Write(std::string_view text) {
    while (!text.empty()) {
        if (!WaitUntilWritable()) {
            return ECANCELED;
        }
        const long count = WriteSome(text);
        if (count > 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (count < 0 && errno != EINTR && errno != EAGAIN) {
            return errno;
        }
    }
    return 0;
}

Descriptor OpenPatiently(const std::string& path, const Wake& wake) {
    bool ends = false;
    while (!ends) {
        Descriptor file(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        if (file) {
            return file;
        }
        if (errno != ENXIO && errno != EINTR) {
            throw std::runtime_error(
                fmt::format("cannot write {}: {}", path, std::strerror(errno)));
        }
        ends = WaitFor(-1, wake, kLookAgain);
    }
    throw std::runtime_error(fmt::format("cannot write {}: nobody reads it", path));
}

}  // namespace Lanscout
