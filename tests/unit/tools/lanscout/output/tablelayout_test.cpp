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

TEST(Table, WayIsShownWhereItDiffersAndNotWhereItIsUnknown) {
    Device local = Camera();
    local.reach = Reach::Local;
    EXPECT_THAT(Lines({local, Camera()}, {})[0], Not(HasSubstr("REACH")));
    Device routed = Camera();
    routed.reach = Reach::Routed;
    EXPECT_THAT(Lines({local, routed}, {})[0], HasSubstr("REACH"));
}

TEST(Table, WhatOneDeviceAloneHasIsShown) {
    Device device = Camera();
    device.serial = "S1";
    EXPECT_THAT(Lines({device}, {})[0], HasSubstr("SERIAL"));
}

TEST(Table, WidthIsUsedToTheLastColumn) {
    Device device = Camera();
    device.hardware = std::string(32, 'm');
    const auto width = [&](int room) { return DisplayWidth(Lines({device}, {room})[1]); };
    const int natural = DisplayWidth(Lines({device}, {})[1]);
    EXPECT_EQ(width(natural), natural);
    EXPECT_EQ(width(natural - 1), natural - 1) << "a text is cut before a column goes";
    EXPECT_EQ(width(natural - 20), natural - 20);
    EXPECT_THAT(Lines({device}, {natural - 20})[0], HasSubstr("FOUND BY"));
    EXPECT_THAT(Lines({device}, {natural - 21})[0], Not(HasSubstr("FOUND BY")))
        << "no text is cut below its least width";
}

TEST(Table, LongTextIsCutAlsoWhereThereIsRoom) {
    Device device = Camera();
    device.hardware = std::string(40, 'm');
    EXPECT_THAT(Lines({device}, {})[1], HasSubstr(std::string(31, 'm') + "…"));
    EXPECT_THAT(Lines({device}, {})[1], Not(HasSubstr(std::string(32, 'm'))));
}

TEST(Table, ColumnsGoByTheirRank) {
    Device device = Camera();
    device.name = "Main Gate";
    device.page = "http://192.168.1.20/";
    std::vector<std::string> gone;
    for (int width = 120; width > 14; --width) {
        const std::string titles = Lines({device}, {width})[0] + " ";
        for (const std::string title : {"PORT ", "MAC ", "KIND ", "FOUND BY ", "NAME ", "PAGE "}) {
            if (titles.find(title) == std::string::npos &&
                std::find(gone.begin(), gone.end(), title) == gone.end()) {
                gone.push_back(title);
            }
        }
    }
    EXPECT_EQ(gone,
              (std::vector<std::string>{"FOUND BY ", "PAGE ", "NAME ", "KIND ", "PORT ", "MAC "}));
}

TEST(Table, EveryTextOfADeviceIsMadeSafe) {
    for (const Field& field : Fields()) {
        if (const auto* const member = std::get_if<std::string Device::*>(&field.member)) {
            Device device = Camera();
            device.*(*member) = "\x1b[2J\n\u202e";
            for (const std::string& line : Lines({device}, {})) {
                EXPECT_EQ(line.find_first_of("\x1b\n"), std::string::npos) << field.name;
            }
        }
    }
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
