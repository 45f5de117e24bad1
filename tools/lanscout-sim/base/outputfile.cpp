#include "tools/lanscout-sim/base/outputfile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "tools/lanscout-sim/base/setuperror.h"

namespace lansim {
namespace {

// What a new file may have; umask(2) tells only by being set.
mode_t NewFileMode() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

bool WriteAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t size = write(fd, text.data(), text.size());
        if (size < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(size < 0 ? 0 : static_cast<std::size_t>(size));
    }
    return true;
}

}  // namespace

OutputFile::OutputFile(const std::string& name) : m_name(name) {
    if (name == "-") {
        m_fd = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    } else {
        std::error_code error;
        const auto resolved = std::filesystem::weakly_canonical(name, error);
        m_target = error ? name : resolved.string();
        struct stat status {};
        const bool isThere = stat(m_target.c_str(), &status) == 0;
        if (isThere && !S_ISREG(status.st_mode)) {
            m_fd = open(m_target.c_str(), O_WRONLY | O_CLOEXEC);
        } else if (!isThere || access(m_target.c_str(), W_OK) == 0) {
            MakeDraft();
            if (m_fd >= 0) {
                fchmod(m_fd, isThere ? status.st_mode & 07777 : NewFileMode());
            }
        }
    }
    if (m_fd < 0) {
        Fail();
    }
}

OutputFile::~OutputFile() {
    if (m_fd >= 0) {
        close(m_fd);
    }
    if (!m_draft.empty()) {
        unlink(m_draft.c_str());
    }
}

void OutputFile::MakeDraft() {
    const std::filesystem::path target(m_target);
    m_draft = (target.parent_path() / ".lanscout-sim-XXXXXX").string();
    m_fd = mkostemp(m_draft.data(), O_CLOEXEC);
    if (m_fd < 0) {
        m_draft.clear();
    }
}

void OutputFile::Write(const std::string& text) {
    if (!WriteAll(m_fd, text)) {
        Fail();
    }
    if (m_draft.empty()) {
        return;
    }
    if (fsync(m_fd) != 0 || rename(m_draft.c_str(), m_target.c_str()) != 0) {
        Fail();
    }
    m_draft.clear();
}

void OutputFile::Fail() const {
    FailWithErrno("cannot write " + (m_name == "-" ? "standard output" : m_name));
}

}  // namespace lansim
