// A new field is one row: this test has a table with one row more, and sees the field wherever
// fields are.
#include <gtest/gtest.h>

#include <fstream>

#include "finder/device/comparison.h"
#include "finder/device/devicejson.h"
#include "finder/device/inventory.h"
#include "finder/schema.h"

using namespace Lanscout;

namespace {

// For want of a member that no row has, one that this table gives another name.
const std::array kTable{
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

}  // namespace

namespace Lanscout {

std::span<const Field> Fields() {
    return kTable;
}

}  // namespace Lanscout

TEST(AddedField, IsInTheJsonBothWays) {
    const Json json = DeviceToJson(With("1.2.3.4", "full"));
    EXPECT_EQ(json.at("battery"), "full");
    EXPECT_EQ(DeviceFromJson(json)->firmware, "full");
}

TEST(AddedField, IsInTheSchema) {
    const Json schema = FillSchema({{"$defs", Json::object()}});
    EXPECT_TRUE(schema["$defs"]["device"]["properties"].contains("battery"));
    EXPECT_EQ(schema["$defs"]["device"]["required"], (Json{"ip", "battery"}));
    EXPECT_EQ(schema["$defs"]["changes"]["items"]["properties"]["field"]["enum"],
              (Json{"ip", "battery"}));
}

TEST(AddedField, IsComparedAndSortedBy) {
    const Comparison comparison = Compare({With("1.2.3.4", "full")}, {With("1.2.3.4", "empty")});
    ASSERT_EQ(comparison.changed.size(), 1U);
    EXPECT_EQ(ChangesText(comparison.changed[0].changes), "battery: full -> empty");
    std::vector<Device> devices{With("1.2.3.4", "full"), With("1.2.3.5", "empty")};
    SortDevices(devices, *FieldNamed("battery"));
    EXPECT_EQ(devices[0].firmware, "empty");
    EXPECT_EQ(CsvNames(), (std::vector<std::string>{"ip", "battery"}));
}

TEST(AddedField, IsMerged) {
    Inventory list([](const std::string&) { return std::string(); });
    list.Add({SourceId::Probes, {}, With("1.2.3.4", "")}, 0);
    list.Add({SourceId::UpnpSearch, {}, With("1.2.3.4", "full")}, 0);
    list.Settle();
    ASSERT_EQ(list.Devices().size(), 1U);
    EXPECT_EQ(list.Devices()[0].firmware, "full");
}
