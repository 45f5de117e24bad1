#include "finder/machine/files.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <thread>

#include "finder/machine/descriptor.h"
#include "tests/unit/support/scratchfolder.h"

using namespace Lanscout;
using testing::HasSubstr;
namespace fs = std::filesystem;

namespace {

// System calls that fail on purpose.
int writeError = 0;
int syncError = 0;
int renameError = 0;
std::size_t longestWrite = SIZE_MAX;
std::size_t randomCalls = 0;
bool isRandomZero = false;

struct Failing {
    Failing(int& error, int value) : m_error(error) { m_error = value; }
    ~Failing() { m_error = 0; }
    Failing(const Failing&) = delete;
    Failing& operator=(const Failing&) = delete;
    int& m_error;
};

std::string FailureOf(const std::function<void()>& what) {
    try {
        what();
    } catch (const std::runtime_error& failure) {
        return failure.what();
    }
    return "";
}

std::size_t FilesIn(const fs::path& folder) {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

mode_t ModeOf(const fs::path& path) {
    struct stat status {};
    stat(path.c_str(), &status);
    return status.st_mode & 07777U;
}

}  // namespace

// Seen by shared libraries too: under the address sanitizer those of this tree call them.
#pragma GCC visibility push(default)
extern "C" {

ssize_t __real_write(int fd, const void* bytes, size_t count);
ssize_t __wrap_write(int fd, const void* bytes, size_t count) {
    if (writeError != 0) {
        errno = writeError;
        return -1;
    }
    return __real_write(fd, bytes, std::min(count, longestWrite));
}

int __real_fsync(int fd);
int __wrap_fsync(int fd) {
    errno = syncError;
    return syncError != 0 ? -1 : __real_fsync(fd);
}

int __real_renameat(int fromFolder, const char* from, int toFolder, const char* to);
int __wrap_renameat(int fromFolder, const char* from, int toFolder, const char* to) {
    errno = renameError;
    return renameError != 0 ? -1 : __real_renameat(fromFolder, from, toFolder, to);
}

ssize_t __real_getrandom(void* bytes, size_t count, unsigned int flags);
ssize_t __wrap_getrandom(void* bytes, size_t count, unsigned int flags) {
    ++randomCalls;
    if (isRandomZero) {
        std::memset(bytes, 0, count);
        return static_cast<ssize_t>(count);
    }
    return __real_getrandom(bytes, count, flags);
}
}
#pragma GCC visibility pop

TEST(WriteWholeFile, NewFileHasTheTextAndTheUsersMask) {
    const ScratchFolder folder;
    const mode_t former = umask(027);
    WriteWholeFile(folder.Path() / "page", "text");
    umask(former);
    EXPECT_EQ(ReadWholeFile(folder.Path() / "page"), "text");
    EXPECT_EQ(ModeOf(folder.Path() / "page"), 0640U);
    EXPECT_EQ(FilesIn(folder.Path()), 1U);
}

TEST(WriteWholeFile, FileInTheCurrentFolderNeedsNoPath) {
    const ScratchFolder folder;
    const fs::path former = fs::current_path();
    fs::current_path(folder.Path());
    WriteWholeFile("page", "text");
    fs::current_path(former);
    EXPECT_EQ(ReadWholeFile(folder.Path() / "page"), "text");
}

TEST(WriteWholeFile, ModeAndOwnerStay) {
    const ScratchFolder folder;
    const fs::path page = folder.Write("page", "former");
    chmod(page.c_str(), 0604);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(page.c_str(), 12, 34), 0);
    }
    struct stat before {};
    stat(page.c_str(), &before);
    WriteWholeFile(page, "text");
    struct stat after {};
    stat(page.c_str(), &after);
    EXPECT_EQ(ModeOf(page), 0604U);
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_gid, before.st_gid);
    EXPECT_NE(after.st_ino, before.st_ino);  // replaced, and not written over
}

TEST(WriteWholeFile, FileBehindLinksIsReplacedAndTheLinksStay) {
    const ScratchFolder folder;
    folder.Write("real/page", "former");
    fs::create_symlink("real/page", folder.Path() / "link");
    fs::create_symlink(folder.Path() / "link", folder.Path() / "other");
    WriteWholeFile(folder.Path() / "other", "text");
    EXPECT_TRUE(fs::is_symlink(folder.Path() / "other"));
    EXPECT_TRUE(fs::is_symlink(folder.Path() / "link"));
    EXPECT_EQ(ReadWholeFile(folder.Path() / "real/page"), "text");
    EXPECT_EQ(FilesIn(folder.Path() / "real"), 1U);
}

TEST(WriteWholeFile, FileBehindADanglingLinkIsMade) {
    const ScratchFolder folder;
    fs::create_symlink("page", folder.Path() / "link");
    WriteWholeFile(folder.Path() / "link", "text");
    EXPECT_TRUE(fs::is_symlink(folder.Path() / "link"));
    EXPECT_EQ(ReadWholeFile(folder.Path() / "page"), "text");
}

TEST(WriteWholeFile, LinksInACircleAreAnError) {
    const ScratchFolder folder;
    fs::create_symlink("b", folder.Path() / "a");
    fs::create_symlink("a", folder.Path() / "b");
    EXPECT_THAT(FailureOf([&] { WriteWholeFile(folder.Path() / "a", "text"); }),
                HasSubstr("Too many levels of symbolic links"));
}

TEST(WriteWholeFile, LongestNamesAreWritten) {
    const ScratchFolder folder;
    const fs::path page = folder.Path() / std::string(255, 'n');
    WriteWholeFile(page, "text");
    EXPECT_EQ(ReadWholeFile(page), "text");
}

TEST(WriteWholeFile, DraftsNameIsDrawnEachTime) {
    const ScratchFolder folder;
    randomCalls = 0;
    WriteWholeFile(folder.Path() / "page", "text");
    WriteWholeFile(folder.Path() / "page", "text");
    EXPECT_EQ(randomCalls, 2U);
}

TEST(WriteWholeFile, LinkInTheDraftsPlaceIsNotFollowed) {
    const ScratchFolder folder;
    const fs::path victim = folder.Write("victim", "precious");
    for (const char* target : {"victim", "none"}) {
        const fs::path draft = folder.Path() / ".lanscout-0000000000000000";
        fs::create_symlink(target, draft);
        isRandomZero = true;
        const std::string failure =
            FailureOf([&] { WriteWholeFile(folder.Path() / "page", "text"); });
        isRandomZero = false;
        EXPECT_THAT(failure, HasSubstr("File exists")) << target;
        EXPECT_TRUE(fs::is_symlink(draft));
        fs::remove(draft);
    }
    EXPECT_EQ(ReadWholeFile(victim), "precious");
    EXPECT_EQ(FilesIn(folder.Path()), 1U);
}

TEST(WriteWholeFile, PiecesAreWrittenToTheEnd) {
    const ScratchFolder folder;
    longestWrite = 7;
    WriteWholeFile(folder.Path() / "page", "a text in several pieces");
    longestWrite = SIZE_MAX;
    EXPECT_EQ(ReadWholeFile(folder.Path() / "page"), "a text in several pieces");
}

TEST(WriteWholeFile, FailureLeavesTheFormerFileAndNoDraft) {
    const ScratchFolder folder;
    const fs::path page = folder.Write("page", "former");
    const auto write = [&] { WriteWholeFile(page, "text"); };
    {
        const Failing failing(writeError, ENOSPC);
        EXPECT_EQ(FailureOf(write), "cannot write " + page.string() + ": No space left on device");
    }
    {
        const Failing failing(syncError, EIO);
        EXPECT_THAT(FailureOf(write), HasSubstr("Input/output error"));
    }
    {
        const Failing failing(renameError, EACCES);
        EXPECT_THAT(FailureOf(write), HasSubstr("Permission denied"));
    }
    EXPECT_EQ(ReadWholeFile(page), "former");
    EXPECT_EQ(FilesIn(folder.Path()), 1U);
}

TEST(WriteWholeFile, FileSizeLimitIsAnError) {
    const ScratchFolder folder;
    rlimit former{};
    getrlimit(RLIMIT_FSIZE, &former);
    rlimit small = former;
    small.rlim_cur = 4096;
    setrlimit(RLIMIT_FSIZE, &small);
    const std::string failure =
        FailureOf([&] { WriteWholeFile(folder.Path() / "page", std::string(10000, 'x')); });
    setrlimit(RLIMIT_FSIZE, &former);
    EXPECT_THAT(failure, HasSubstr("File too large"));
    EXPECT_EQ(FilesIn(folder.Path()), 0U);
    struct sigaction now {};
    sigaction(SIGXFSZ, nullptr, &now);
    EXPECT_EQ(now.sa_handler, SIG_DFL);
}

TEST(WriteWholeFile, PipeIsWrittenAsItIs) {
    const ScratchFolder folder;
    const fs::path pipe = folder.Path() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const Descriptor reader(open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    WriteWholeFile(pipe, "text");
    std::string read(4, '\0');
    EXPECT_EQ(::read(reader.Fd(), read.data(), read.size()), 4);
    EXPECT_EQ(read, "text");
    EXPECT_TRUE(fs::is_fifo(pipe));
}

TEST(WriteWholeFile, FileBehindADescriptorIsWrittenAsItIs) {
    const ScratchFolder folder;
    const fs::path page = folder.Write("page", "former text");
    const Descriptor file(open(page.c_str(), O_RDWR | O_CLOEXEC));
    WriteWholeFile("/dev/fd/" + std::to_string(file.Fd()), "text");
    std::string read(20, '\0');
    EXPECT_EQ(::read(file.Fd(), read.data(), read.size()), 4);
    EXPECT_EQ(FilesIn(folder.Path()), 1U);
}

TEST(WriteWholeFile, DeviceStaysADevice) {
    WriteWholeFile("/dev/null", "text");
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

TEST(WriteWholeFile, FolderIsAnError) {
    const ScratchFolder folder;
    EXPECT_THAT(FailureOf([&] { WriteWholeFile(folder.Path(), "text"); }),
                HasSubstr("Is a directory"));
    EXPECT_THAT(FailureOf([&] { WriteWholeFile(folder.Path() / "none" / "page", "text"); }),
                HasSubstr("No such file or directory"));
    EXPECT_THAT(FailureOf([&] { WriteWholeFile(folder.Path().string() + "/", "text"); }),
                HasSubstr("Is a directory"));
}

TEST(CheckWritable, LeavesEverythingAsItIs) {
    const ScratchFolder folder;
    const fs::path page = folder.Write("page", "former");
    CheckWritable(page);
    CheckWritable(folder.Path() / "new");
    CheckWritable("/dev/null");
    EXPECT_EQ(ReadWholeFile(page), "former");
    EXPECT_EQ(FilesIn(folder.Path()), 1U);
}

TEST(CheckWritable, WhatCannotBeWrittenIsSaid) {
    const ScratchFolder folder;
    EXPECT_THAT(FailureOf([&] { CheckWritable(folder.Path() / "none" / "page"); }),
                HasSubstr("No such file or directory"));
    EXPECT_THAT(FailureOf([&] { CheckWritable(folder.Path()); }), HasSubstr("Is a directory"));
    EXPECT_THAT(FailureOf([&] { CheckWritable("/dev"); }), HasSubstr("Is a directory"));
    EXPECT_THAT(FailureOf([&] { CheckWritable("/dev/no such device"); }),
                HasSubstr("No such file or directory"));
}

TEST(CheckWritable, FileThatTheUserMayNotWriteStays) {
    const ScratchFolder folder;
    const fs::path page = folder.Write("page", "former");
    chmod(page.c_str(), 0444);
    chmod(folder.Path().c_str(), 0777);
    std::string failure;
    std::thread([&] {
        if (geteuid() == 0) {
            constexpr uid_t kNobody = 65534;
            // The library's own setreuid would be for all threads.
            ASSERT_EQ(syscall(SYS_setreuid, kNobody, kNobody), 0);
        }
        failure = FailureOf([&] { WriteWholeFile(page, "text"); });
    }).join();
    EXPECT_THAT(failure, HasSubstr("Permission denied"));
}

TEST(ReadWholeFile, LargerFilesAreAnError) {
    const ScratchFolder folder;
    const fs::path file = folder.Write("file", std::string(100000, 'x'));
    EXPECT_EQ(ReadWholeFile(file, 100000).size(), 100000U);
    EXPECT_THAT(FailureOf([&] { ReadWholeFile(file, 99999); }), HasSubstr("File too large"));
}

TEST(ReadWholeFile, WhatCannotBeReadIsSaid) {
    const ScratchFolder folder;
    EXPECT_EQ(FailureOf([&] { ReadWholeFile(folder.Path() / "none"); }),
              "cannot read " + (folder.Path() / "none").string() + ": No such file or directory");
    EXPECT_THAT(FailureOf([&] { ReadWholeFile(folder.Path()); }), HasSubstr("Is a directory"));
}
