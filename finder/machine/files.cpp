#include "finder/machine/files.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "finder/machine/descriptor.h"

namespace Lanscout {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kModeOfNewFiles = 0666;  // less what the user's mask takes away
constexpr mode_t kModeBits = 07777;
constexpr mode_t kPermissionBits = 0777;
constexpr std::size_t kPieceBytes = 65536;
constexpr int kMostLinks = 40;  // as the kernel's own limit

[[noreturn]] void Fail(const char* what, const std::string& path, int error) {
    throw std::runtime_error(fmt::format("cannot {} {}: {}", what, path, std::strerror(error)));
}

[[noreturn]] void ThrowErrno() {
    throw std::system_error(errno, std::generic_category());
}

// A file beyond the process's limit is an error like others, and no signal that ends it.
class NoFileSizeSignal {
public:
    NoFileSizeSignal() {
        struct sigaction ignore {};
        ignore.sa_handler = SIG_IGN;  // NOLINT(cppcoreguidelines-pro-type-union-access)
        sigaction(SIGXFSZ, &ignore, &m_former);
    }
    ~NoFileSizeSignal() { sigaction(SIGXFSZ, &m_former, nullptr); }
    NoFileSizeSignal(const NoFileSizeSignal&) = delete;
    NoFileSizeSignal& operator=(const NoFileSizeSignal&) = delete;

private:
    struct sigaction m_former {};
};

bool StandsIn(const fs::path& folder, const fs::path& path) {
    return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first ==
           folder.end();
}

// What stands there is a door to something else, as /dev/stdout is.
bool IsDoor(const fs::path& path) {
    const fs::path absolute = fs::absolute(path).lexically_normal();
    return (StandsIn("/dev", absolute) && !StandsIn("/dev/shm", absolute)) ||
           StandsIn("/proc", absolute);
}

// Where the file is, or would be, behind symbolic links.
fs::path Resolve(const std::string& path) {
    fs::path resolved = path;
    for (int links = 0; fs::is_symlink(fs::symlink_status(resolved)); ++links) {
        if (links == kMostLinks) {
            throw std::system_error(ELOOP, std::generic_category());
        }
        resolved = resolved.parent_path() / fs::read_symlink(resolved);
    }
    return resolved;
}

// The file that is replaced, or nothing for one that is written as it is.
struct Place {
    fs::path file;
    fs::path folder;
    std::optional<struct stat> former;
};

std::optional<Place> FindPlace(const std::string& path) {
    if (IsDoor(path)) {
        return std::nullopt;
    }
    Place place;
    try {
        place.file = Resolve(path);
    } catch (const std::system_error& failure) {
        Fail("write", path, failure.code().value());
    }
    place.folder = place.file.has_parent_path() ? place.file.parent_path() : fs::path(".");
    struct stat status {};
    if (stat(place.file.c_str(), &status) == 0) {
        if (IsDoor(place.file) || (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode))) {
            return std::nullopt;
        }
        place.former = status;
    } else if (errno != ENOENT) {
        Fail("write", path, errno);
    }
    if (!place.file.has_filename() || (place.former && S_ISDIR(place.former->st_mode))) {
        Fail("write", path, EISDIR);
    }
    if (place.former && access(place.file.c_str(), W_OK) != 0) {
        Fail("write", path, errno);
    }
    return place;
}

void WriteAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = write(fd, text.data(), text.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            ThrowErrno();
        }
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

// A file beside the one that it is to replace; gone unless it does.
class Draft {
public:
    // What fails in here throws std::system_error.
    explicit Draft(const Place& place)
        : m_folder(open(place.folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
        std::uint64_t chance = 0;
        if (!m_folder || getrandom(&chance, sizeof chance, 0) != sizeof chance) {
            ThrowErrno();
        }
        m_name = fmt::format(".lanscout-{:016x}", chance);
        const mode_t mode = place.former ? S_IRUSR | S_IWUSR : kModeOfNewFiles;
        m_file = Descriptor(openat(m_folder.Fd(), m_name.c_str(),
                                   O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
        if (!m_file) {
            m_name.clear();
            ThrowErrno();
        }
    }
    ~Draft() { Remove(); }
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;

    // Writes it, and lets it take the place of the other.
    void Replace(const Place& place, std::string_view text) {
        WriteAll(m_file.Fd(), text);
        if (place.former) {
            LookLike(*place.former);
        }
        if (fsync(m_file.Fd()) != 0 || renameat(m_folder.Fd(), m_name.c_str(), m_folder.Fd(),
                                                place.file.filename().c_str()) != 0) {
            ThrowErrno();
        }
        m_name.clear();
    }

private:
    // The owner first: giving a file away takes its special bits. Whoever may not give it away
    // keeps it, without those bits and without rights for a group that is not the former one.
    void LookLike(const struct stat& former) {
        mode_t mode = former.st_mode & kModeBits;
        if (fchown(m_file.Fd(), former.st_uid, former.st_gid) != 0) {
            mode &= kPermissionBits;
            if (fchown(m_file.Fd(), static_cast<uid_t>(-1), former.st_gid) != 0) {
                mode &= ~static_cast<mode_t>(S_IRWXG);
            }
        }
        if (fchmod(m_file.Fd(), mode) != 0) {
            ThrowErrno();
        }
    }

    void Remove() noexcept {
        if (!m_name.empty()) {
            unlinkat(m_folder.Fd(), m_name.c_str(), 0);
        }
    }

    Descriptor m_folder;
    std::string m_name;
    Descriptor m_file;
};

void WriteInPlace(const std::string& path, std::string_view text) {
    const Descriptor file(open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC | O_NOCTTY));
    if (!file) {
        ThrowErrno();
    }
    WriteAll(file.Fd(), text);
}

void CheckInPlace(const std::string& path) {
    if (access(path.c_str(), W_OK) != 0) {
        Fail("write", path, errno);
    }
    if (fs::is_directory(path)) {
        Fail("write", path, EISDIR);
    }
}

}  // namespace

std::string ReadWholeFile(const std::string& path, std::size_t mostBytes) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!file) {
        Fail("read", path, errno);
    }
    std::string text;
    for (std::string piece(kPieceBytes, '\0');;) {
        const ssize_t count = read(file.Fd(), piece.data(), piece.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            Fail("read", path, errno);
        }
        if (count == 0) {
            return text;
        }
        text.append(piece, 0, static_cast<std::size_t>(count));
        if (text.size() > mostBytes) {
            Fail("read", path, EFBIG);
        }
    }
}

void CheckWritable(const std::string& path) {
    const std::optional<Place> place = FindPlace(path);
    if (!place) {
        return CheckInPlace(path);
    }
    try {
        const Draft trial(*place);
    } catch (const std::system_error& failure) {
        Fail("write", path, failure.code().value());
    }
}

void WriteWholeFile(const std::string& path, std::string_view text) {
    const NoFileSizeSignal noSignal;
    const std::optional<Place> place = FindPlace(path);
    try {
        if (place) {
            Draft(*place).Replace(*place, text);
        } else {
            WriteInPlace(path, text);
        }
    } catch (const std::system_error& failure) {
        Fail("write", path, failure.code().value());
    }
}

}  // namespace Lanscout
