#include "tools/lanscout/output/tablelayout.h"

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
    device.protocols.onvif = true;
    device.seenVia = {{"eth0", "192.168.1.2"}};
    return device;
}

std::vector<std::string> Lines(const std::vector<Device>& devices, const TableStyle& style) {
    return LayOutTable(devices, style);
}

}  // namespace

TEST(Table, EmptyColumnsAreLeftOut) {
    const auto lines = Lines({Camera()}, {});
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "IP            PORT  MAC                KIND    FOUND BY  MODEL");
    EXPECT_EQ(lines[1], "192.168.1.20  8080  00:1B:FF:01:02:03  camera  onvif     IPC-100");
}

TEST(Table, MissingMacIsSaid) {
    Device device = Camera();
    device.mac.clear();
    EXPECT_THAT(Lines({device}, {})[1], HasSubstr("N/A"));
}

TEST(Table, InterfaceIsShownWhereTheyDiffer) {
    Device other = Camera();
    other.seenVia = {{"eth1", "10.0.0.2"}};
    EXPECT_THAT(Lines({Camera(), other}, {})[0], HasSubstr("SEEN ON"));
}

TEST(Table, LinesNeverExceedTheWidth) {
    Device device = Camera();
    device.hardware = std::string(100, 'h');
    device.name = "入口入口入口入口入口入口";
    device.maker = std::string(50, 'm');
    device.model = std::string(50, 'o');
    device.page = "http://192.168.1.20/index.html";
    for (int width = 12; width < 200; ++width) {
        for (const std::string& line : Lines({device, Camera()}, {width})) {
            ASSERT_LE(DisplayWidth(line), width) << line;
        }
    }
}

TEST(Table, AddressAndModelOutliveTheOthers) {
    EXPECT_EQ(Lines({Camera()}, {24})[1], "192.168.1.20  IPC-100");
}

TEST(Table, PageIsWholeOrAbsent) {
    Device device = Camera();
    device.page = "http://192.168.1.20/a/rather/long/path/index.html";
    for (int width = 12; width < 200; ++width) {
        const std::string line = Lines({device}, {width})[1];
        if (line.find("http") != std::string::npos) {
            ASSERT_THAT(line, HasSubstr(device.page));
        }
    }
}

TEST(Table, EscapeSequencesOfDevicesStayText) {
    Device device = Camera();
    device.hardware = "\x1b[2J";
    EXPECT_THAT(Lines({device}, {})[1], HasSubstr("\\x1b[2J"));
}

TEST(Table, ColourOnlyWhereItIsWanted) {
    EXPECT_THAT(Lines({Camera()}, {0, true})[1], HasSubstr("\x1b[32mcamera\x1b[0m"));
    EXPECT_THAT(Lines({Camera()}, {0, false})[1], Not(HasSubstr("\x1b")));
}
