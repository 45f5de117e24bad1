#include "finder/machine/descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

using namespace Lanscout;

namespace {

int OpenSomething() {
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool IsOpen(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

}  // namespace

TEST(Descriptor, IsClosedWithItsOwner) {
    const int fd = OpenSomething();
    {
        const Descriptor owner(fd);
        EXPECT_TRUE(owner);
        EXPECT_TRUE(IsOpen(fd));
    }
    EXPECT_FALSE(IsOpen(fd));
}

TEST(Descriptor, NothingIsOwnedByDefault) {
    EXPECT_FALSE(Descriptor());
    EXPECT_FALSE(Descriptor(-1));
}

TEST(Descriptor, MovingLeavesOneOwner) {
    const int fd = OpenSomething();
    Descriptor first(fd);
    {
        const Descriptor second(std::move(first));
        EXPECT_EQ(second.Fd(), fd);
        EXPECT_TRUE(IsOpen(fd));
    }
    EXPECT_FALSE(IsOpen(fd));
}

TEST(Descriptor, AssigningClosesTheFormerOne) {
    const int former = OpenSomething();
    const int next = OpenSomething();
    Descriptor owner(former);
    owner = Descriptor(next);
    EXPECT_FALSE(IsOpen(former));
    EXPECT_TRUE(IsOpen(next));
    Descriptor& same = owner;
    owner = std::move(same);
    EXPECT_TRUE(IsOpen(next));
}

TEST(Descriptor, ReleasedOneStaysOpen) {
    const int fd = OpenSomething();
    EXPECT_EQ(Descriptor(fd).Release(), fd);
    EXPECT_TRUE(IsOpen(fd));
    close(fd);
}

TEST(Descriptor, ClosingKeepsErrno) {
    Descriptor closedBefore(OpenSomething());
    close(closedBefore.Fd());
    errno = ENOENT;
    closedBefore.Close();  // fails with EBADF
    EXPECT_EQ(errno, ENOENT);
}
