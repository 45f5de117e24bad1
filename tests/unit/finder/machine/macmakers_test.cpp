#include "finder/machine/macmakers.h"

#include <gtest/gtest.h>

#include "tests/unit/support/scratchfolder.h"

using namespace Lanscout;

namespace {

void WriteLists(const ScratchFolder& folder) {
    folder.Write("oui.txt",
                 "OUI/MA-L      Organization\r\ncompany_id\r\n\r\n"
                 "00-1B-FF   (hex)\t\tBig Maker, Inc.\r\n"
                 "001BFF     (base 16)\t\tBig Maker, Inc.\r\n\t\t\t\tA Street\r\n\r\n"
                 "70-B3-D4   (hex)\t\tRegistry\r\n70B3D4     (base 16)\t\tRegistry\r\n");
    folder.Write("mam.txt",
                 "70-B3-D4   (hex)\t\tMedium\r\n"
                 "A00000-AFFFFF     (base 16)\t\tMedium\r\n");
    folder.Write("oui36.txt",
                 "70-B3-D4   (hex)\t\tSmall\r\n"
                 "719000-719FFF     (base 16)\t\tSmall\r\n");
}

}  // namespace

TEST(MacMakers, BlockIsFound) {
    const ScratchFolder folder;
    WriteLists(folder);
    EXPECT_EQ(MacMakers(folder.Path()).MakerOf("00:1B:FF:01:02:03"), "Big Maker, Inc.");
}

TEST(MacMakers, SmallerAssignmentsComeFirst) {
    const ScratchFolder folder;
    WriteLists(folder);
    MacMakers makers(folder.Path());
    EXPECT_EQ(makers.MakerOf("70:B3:D4:A1:02:03"), "Medium");
    EXPECT_EQ(makers.MakerOf("70:B3:D4:71:92:03"), "Small");
    EXPECT_EQ(makers.MakerOf("70:B3:D4:71:82:03"), "Registry");
}

TEST(MacMakers, UnassignedAndChosenAddressesHaveNoMaker) {
    const ScratchFolder folder;
    WriteLists(folder);
    folder.Write("mam.txt", "");
    MacMakers makers(folder.Path());
    EXPECT_EQ(makers.MakerOf("00:00:01:01:02:03"), "");
    EXPECT_EQ(makers.MakerOf("02:1B:FF:01:02:03"), "");
    EXPECT_EQ(makers.MakerOf(""), "");
    EXPECT_EQ(makers.MakerOf("00:1B"), "");
}

TEST(MacMakers, MissingListsAreNoError) {
    const ScratchFolder folder;
    EXPECT_EQ(MacMakers(folder.Path() / "none").MakerOf("00:1B:FF:01:02:03"), "");
}
