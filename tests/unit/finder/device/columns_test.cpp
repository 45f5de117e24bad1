#include "finder/device/columns.h"

#include <gmock/gmock.h>

using namespace Lanscout;
using testing::ElementsAre;

namespace {

Device At(const std::string& ip, int port = 80, const std::string& hardware = "") {
    Device device;
    device.ip = ip;
    device.port = port;
    device.hardware = hardware;
    return device;
}

std::vector<std::string> Sorted(std::vector<Device> devices, const std::string& column) {
    SortDevices(devices, column);
    std::vector<std::string> ips;
    for (const Device& device : devices) {
        ips.push_back(device.ip);
    }
    return ips;
}

}  // namespace

TEST(Columns, AddressesSortByValue) {
    EXPECT_THAT(Sorted({At("10.0.0.100"), At("10.0.0.20"), At("9.255.0.1")}, "ip"),
                ElementsAre("9.255.0.1", "10.0.0.20", "10.0.0.100"));
}

TEST(Columns, PortsSortByValueAndEqualOnesByAddress) {
    EXPECT_THAT(Sorted({At("10.0.0.3", 8080), At("10.0.0.2", 80), At("10.0.0.1", 8080)}, "port"),
                ElementsAre("10.0.0.2", "10.0.0.1", "10.0.0.3"));
}

TEST(Columns, UnknownTextsComeLast) {
    EXPECT_THAT(
        Sorted({At("10.0.0.1"), At("10.0.0.2", 80, "b"), At("10.0.0.3", 80, "a")}, "hardware"),
        ElementsAre("10.0.0.3", "10.0.0.2", "10.0.0.1"));
}

// Scripts count fields: these stay where they are.
TEST(Columns, OrderIsStable) {
    EXPECT_THAT(ColumnNames(), ElementsAre("ip", "port", "hardware", "mac", "maker", "kind",
                                           "protocols", "name", "model", "page", "interface"));
}

TEST(Columns, MakerIsTheDescriptionsOrTheMacAddresses) {
    Device device = At("10.0.0.1");
    device.macMaker = "Chips Ltd";
    EXPECT_EQ(ColumnNamed("maker").text(device), "Chips Ltd");
    device.maker = "Cameras Ltd";
    EXPECT_EQ(ColumnNamed("maker").text(device), "Cameras Ltd");
}
