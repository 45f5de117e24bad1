// A new field is one row: this test has a table of its own, and sees its field in every output.
#include <gmock/gmock.h>

#include <array>

#include "finder/device/fields.h"
#include "tests/unit/support/fakeworld.h"

using namespace Lanscout;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

// For want of a member that no row has, one that this table gives another name.
constexpr std::array kTable{
    Field{
        &Device::ip, "ip", "IP", Merge::Ranked, true, {}, kAlwaysInTable, SortKind::Address, true},
    Field{&Device::firmware,
          "battery",
          "BATTERY",
          Merge::Ranked,
          true,
          {4, 9},
          1,
          SortKind::Text,
          true},
};

Device With(const std::string& ip, const std::string& battery) {
    Device device;
    device.ip = ip;
    device.firmware = battery;
    return device;
}

std::string Written(const std::vector<std::string>& arguments) {
    FakeWorld world({RoundWith({With("1.2.3.4", "low"), With("1.2.3.5", "full")})});
    world.files["before"] =
        ReportToJson(RoundWith({With("1.2.3.4", "half"), With("1.2.3.5", "full")})).dump();
    world.Run(arguments);
    return world.terminal.output + world.files["page"];
}

}  // namespace

namespace Lanscout {

std::span<const Field> Fields() {
    return kTable;
}

}  // namespace Lanscout

TEST(AddedField, IsInTheTable) {
    EXPECT_EQ(Written({"--table"}), "IP       BATTERY\n1.2.3.4  low\n1.2.3.5  full\n");
}

TEST(AddedField, IsInThePlainLines) {
    EXPECT_EQ(Written({"--plain"}), "1.2.3.4\tlow\n1.2.3.5\tfull\n");
}

TEST(AddedField, IsInTheCsv) {
    EXPECT_EQ(Written({"--csv"}), "ip,battery\r\n1.2.3.4,low\r\n1.2.3.5,full\r\n");
}

TEST(AddedField, IsInTheJson) {
    EXPECT_EQ(Json::parse(Written({"--json"}))["devices"][0]["battery"], "low");
    EXPECT_THAT(Written({"--jsonl"}), HasSubstr(R"("battery":"low")"));
}

TEST(AddedField, IsInThePageWithItsTitleAndTexts) {
    const std::string page = Written({"--quiet", "--csv", "--html", "page"});
    EXPECT_THAT(page, HasSubstr(R"({"name":"battery","title":"BATTERY","column":true)"));
    EXPECT_THAT(page, HasSubstr(R"("texts":["1.2.3.4","low"])"));
}

TEST(AddedField, CanBeSortedBy) {
    EXPECT_EQ(Written({"--plain", "--sort", "battery"}), "1.2.3.5\tfull\n1.2.3.4\tlow\n");
}

TEST(AddedField, IsComparedAndWatched) {
    EXPECT_EQ(Written({"--plain", "--compare", "before"}),
              "changed\t1.2.3.4\tlow\tbattery: half -> low\n");
    FakeWorld world(
        {RoundWith({With("1.2.3.4", "full")}, "1"), RoundWith({With("1.2.3.4", "low")}, "2")});
    world.Run({"--watch", "--plain"});
    EXPECT_THAT(world.terminal.output,
                HasSubstr("2\tchanged\tbattery: full -> low\t1.2.3.4\tlow\n"));
}
