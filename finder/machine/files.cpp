#include "finder/machine/files.h"

#include <fmt/core.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace Lanscout {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void Fail(const char* what, const std::string& path, int error) {
    throw std::runtime_error(fmt::format("cannot {} {}: {}", what, path, std::strerror(error)));
}

// Beside the file, so that it can take its place; a device or a pipe is written as it is.
std::string DraftPath(const std::string& path) {
    std::error_code error;
    const bool special = fs::exists(path, error) && !fs::is_regular_file(path, error);
    return special ? path : fmt::format("{}.{}.part", path, getpid());
}

}  // namespace

std::string ReadWholeFile(const std::string& path, std::size_t mostBytes) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        Fail("read", path, errno);
    }
    std::string text;
    for (std::string piece(65536, '\0'); file;) {
        file.read(piece.data(), static_cast<std::streamsize>(piece.size()));
        text.append(piece, 0, static_cast<std::size_t>(file.gcount()));
        if (text.size() > mostBytes) {
            Fail("read", path, EFBIG);
        }
    }
    if (file.bad()) {
        Fail("read", path, errno == 0 ? EIO : errno);
    }
    return text;
}

void CheckWritable(const std::string& path) {
    std::error_code error;
    const std::string draft = DraftPath(path);
    if (draft == path) {
        if (access(path.c_str(), W_OK) != 0 || fs::is_directory(path, error)) {
            Fail("write", path, fs::is_directory(path, error) ? EISDIR : errno);
        }
        return;
    }
    const std::ofstream file(draft);
    if (!file) {
        Fail("write", path, errno);
    }
    fs::remove(draft, error);
}

void WriteWholeFile(const std::string& path, std::string_view text) {
    const std::string draft = DraftPath(path);
    std::ofstream file(draft, std::ios::binary);
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    file.close();
    if (!file) {
        const int error = errno;
        if (draft != path) {
            unlink(draft.c_str());
        }
        Fail("write", path, error);
    }
    if (draft != path) {
        fs::rename(draft, path);
    }
}

}  // namespace Lanscout
