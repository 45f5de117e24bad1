#include "tools/lanscout/output/patientwriter.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "tests/unit/support/scratchfolder.h"

using namespace Lanscout;

namespace {

// A pipe that takes 4,096 bytes, and nobody reads.
struct Pipe {
    explicit Pipe(int flags = O_CLOEXEC) {
        int ends[2];
        EXPECT_EQ(pipe2(ends, flags), 0);
        out = Descriptor(ends[0]);
        in = Descriptor(ends[1]);
        fcntl(in.Fd(), F_SETPIPE_SZ, 4096);
    }
    std::string Read(std::size_t size) const {
        std::string text(size, '\0');
        std::size_t got = 0;
        while (got < size) {
            const ssize_t count = read(out.Fd(), text.data() + got, size - got);
            if (count <= 0) {
                break;
            }
            got += static_cast<std::size_t>(count);
        }
        text.resize(got);
        return text;
    }
    Descriptor out;
    Descriptor in;
};

constexpr std::chrono::milliseconds kPatience{20};
const std::string kLong(20000, 'x');

Wake Ended() {
    return {-1, [] { return true; }};
}

Wake Never() {
    return {-1, [] { return false; }};
}

}  // namespace

TEST(PatientWriter, WritesAllToAReaderThatIsSlow) {
    const Pipe pipe;
    PatientWriter writer(pipe.in.Fd(), Never());
    std::string read;
    std::thread reader([&] { read = pipe.Read(kLong.size()); });
    EXPECT_EQ(writer.Write(kLong), 0);
    reader.join();
    EXPECT_EQ(read, kLong);
}

TEST(PatientWriter, NonBlockingOutputIsWaitedFor) {
    const Pipe pipe;
    ASSERT_EQ(fcntl(pipe.in.Fd(), F_SETFL, O_NONBLOCK), 0);
    PatientWriter writer(pipe.in.Fd(), Never());
    std::string read;
    std::thread reader([&] { read = pipe.Read(kLong.size()); });
    EXPECT_EQ(writer.Write(kLong), 0);
    reader.join();
    EXPECT_EQ(read, kLong);
}

TEST(PatientWriter, OthersWhoShareThePipeStillBlock) {
    const Pipe pipe;
    const PatientWriter writer(pipe.in.Fd(), Never());
    EXPECT_EQ(fcntl(pipe.in.Fd(), F_GETFL) & O_NONBLOCK, 0);
}

TEST(PatientWriter, GivesUpWhenTheUserWantsAnEndAndNobodyReads) {
    const Pipe pipe;
    PatientWriter writer(pipe.in.Fd(), Ended(), kPatience);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(writer.Write(kLong), ECANCELED);
    EXPECT_GE(std::chrono::steady_clock::now() - start, kPatience);
    EXPECT_EQ(writer.Write(kLong), ECANCELED) << "and stays so";
}

TEST(PatientWriter, WritesWhatIsTakenAlsoWhenTheUserWantsAnEnd) {
    const Pipe pipe;
    PatientWriter writer(pipe.in.Fd(), Ended());
    EXPECT_EQ(writer.Write("result\n"), 0);
    EXPECT_EQ(pipe.Read(7), "result\n");
}

TEST(PatientWriter, SocketThatIsFullIsWaitedForToo) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const Descriptor one(ends[0]);
    const Descriptor other(ends[1]);
    PatientWriter writer(one.Fd(), Ended(), kPatience);
    EXPECT_EQ(writer.Write(std::string(8 << 20, 'x')), ECANCELED);
}

TEST(PatientWriter, FullDiskIsAnError) {
    const Descriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    PatientWriter writer(full.Fd(), Never());
    EXPECT_EQ(writer.Write("x"), ENOSPC);
}

TEST(PatientWriter, FileIsAppendedTo) {
    const ScratchFolder folder;
    const std::string path = folder.Write("log", "before\n");
    const Descriptor file(open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    PatientWriter writer(file.Fd(), Never());
    EXPECT_EQ(writer.Write(kLong), 0);
    EXPECT_EQ(std::filesystem::file_size(path), 7 + kLong.size());
}

TEST(PatientWriter, FifoWithoutAReaderIsGivenUpWhenTheUserWantsAnEnd) {
    const ScratchFolder folder;
    const std::string path = folder.Path() / "fifo";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_THROW(OpenPatiently(path, Ended()), std::runtime_error);
}

TEST(PatientWriter, FifoIsOpenedOnceItHasAReader) {
    const ScratchFolder folder;
    const std::string path = folder.Path() / "fifo";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const Descriptor reader(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    EXPECT_TRUE(OpenPatiently(path, Never()));
}
