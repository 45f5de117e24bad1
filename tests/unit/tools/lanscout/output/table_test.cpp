#include "tools/lanscout/output/table.h"

#include <gmock/gmock.h>

using namespace Lanscout;
using testing::HasSubstr;
using testing::Not;

namespace {

Device Camera() {
    Device device;
    device.ip = "192.168.1.20";
    device.port = 8080;
    device.hardware = "IPC-100";
    device.mac = "00:1B:FF:01:02:03";
    device.kind = Kind::Camera;
    device.onvif = true;
    device.seenVia = {{"eth0", "192.168.1.2"}};
    return device;
}

}  // namespace

TEST(Table, EmptyColumnsAreLeftOut) {
    const auto lines = LayOutTable({Camera()}, {});
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "IP            PORT  HARDWARE  MAC                KIND    FOUND BY");
    EXPECT_EQ(lines[1], "192.168.1.20  8080  IPC-100   00:1B:FF:01:02:03  camera  onvif");
}

TEST(Table, MissingMacIsSaid) {
    Device device = Camera();
    device.mac.clear();
    EXPECT_THAT(LayOutTable({device}, {})[1], HasSubstr("N/A"));
}

TEST(Table, InterfaceIsShownWhereTheyDiffer) {
    Device other = Camera();
    other.seenVia = {{"eth1", "10.0.0.2"}};
    EXPECT_THAT(LayOutTable({Camera(), other}, {})[0], HasSubstr("SEEN ON"));
}

TEST(Table, LinesNeverExceedTheWidth) {
    Device device = Camera();
    device.hardware = std::string(100, 'h');
    device.name = "入口入口入口入口入口入口";
    device.maker = std::string(50, 'm');
    device.model = std::string(50, 'o');
    device.page = "http://192.168.1.20/index.html";
    for (int width = 12; width < 200; ++width) {
        for (const std::string& line : LayOutTable({device, Camera()}, {width})) {
            ASSERT_LE(DisplayWidth(line), width) << line;
        }
    }
}

TEST(Table, AddressAndHardwareOutliveTheOthers) {
    EXPECT_EQ(LayOutTable({Camera()}, {24})[1], "192.168.1.20  IPC-100");
}

TEST(Table, PageIsWholeOrAbsent) {
    Device device = Camera();
    device.page = "http://192.168.1.20/a/rather/long/path/index.html";
    for (int width = 12; width < 200; ++width) {
        const std::string line = LayOutTable({device}, {width})[1];
        if (line.find("http") != std::string::npos) {
            ASSERT_THAT(line, HasSubstr(device.page));
        }
    }
}

TEST(Table, EscapeSequencesOfDevicesStayText) {
    Device device = Camera();
    device.hardware = "\x1b[2J";
    EXPECT_THAT(LayOutTable({device}, {})[1], HasSubstr("\\x1b[2J"));
}

TEST(Table, ColourOnlyWhereItIsWanted) {
    EXPECT_THAT(LayOutTable({Camera()}, {0, true})[1], HasSubstr("\x1b[32mcamera\x1b[0m"));
    EXPECT_THAT(LayOutTable({Camera()}, {0, false})[1], Not(HasSubstr("\x1b")));
}
