#include "finder/machine/container.h"

#include <gtest/gtest.h>

#include "tests/unit/support/scratchfolder.h"

using namespace Lanscout;

namespace {

void LinkNetwork(const ScratchFolder& root, const char* process, const char* network) {
    std::filesystem::create_directories(root.Path() / "proc" / process / "ns");
    std::filesystem::create_symlink(network, root.Path() / "proc" / process / "ns/net");
}

}  // namespace

TEST(IsInContainer, MarkOfEachEngineCounts) {
    for (const char* mark : {".dockerenv", "run/.containerenv", "run/systemd/container"}) {
        const ScratchFolder root;
        LinkNetwork(root, "1", "net:[1]");
        LinkNetwork(root, "self", "net:[1]");
        EXPECT_FALSE(IsInContainer(root.Path()));
        root.Write(mark, "");
        EXPECT_TRUE(IsInContainer(root.Path())) << mark;
    }
}

TEST(IsInContainer, WhereTheNetworksCannotBeComparedItIsNotSaid) {
    const ScratchFolder root;
    root.Write(".dockerenv", "");
    EXPECT_FALSE(IsInContainer(root.Path()));
}

TEST(IsInContainer, NetworkThatSomebodyMadeInsideIsNotTheContainers) {
    const ScratchFolder root;
    root.Write(".dockerenv", "");
    LinkNetwork(root, "1", "net:[1]");
    LinkNetwork(root, "self", "net:[2]");
    EXPECT_FALSE(IsInContainer(root.Path()));
    std::filesystem::remove(root.Path() / "proc/self/ns/net");
    LinkNetwork(root, "self", "net:[1]");
    EXPECT_TRUE(IsInContainer(root.Path()));
}

TEST(IsVirtualCable, LoopbackIsNone) {
    EXPECT_FALSE(IsVirtualCable("lo"));
    EXPECT_FALSE(IsVirtualCable("no such interface"));
    EXPECT_FALSE(IsVirtualCable(std::string(300, 'x')));
}
