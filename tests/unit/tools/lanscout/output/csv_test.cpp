#include "tools/lanscout/output/csv.h"

#include <gmock/gmock.h>

#include "finder/device/fields.h"
#include "tests/unit/support/fakeworld.h"

using namespace Lanscout;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

// The cell of a device with that hardware, as it stands in the document.
std::string HardwareCell(const std::string& hardware) {
    const std::string text = CsvDocument(std::vector{DeviceAt("192.168.1.20", hardware)});
    const auto start = text.find(",80,") + 4;
    return text.substr(start, text.find(",,,camera") - start);
}

}  // namespace

TEST(Csv, HeadingAndLineEndsAreRfc4180) {
    std::string heading;
    for (const std::string& name : CsvNames()) {
        heading += (heading.empty() ? "" : ",") + name;
    }
    EXPECT_EQ(CsvDocument({}), heading + "\r\n");
    EXPECT_THAT(heading, StartsWith("ip,port,hardware,mac,maker,kind,protocols,name,model,page,"));
}

TEST(Csv, CommasQuotesAndSemicolonsAreQuoted) {
    EXPECT_EQ(HardwareCell("a,b"), "\"a,b\"");
    EXPECT_EQ(HardwareCell("a\"b"), "\"a\"\"b\"");
    EXPECT_EQ(HardwareCell("a;b"), "\"a;b\"");
    EXPECT_EQ(HardwareCell("a b"), "a b");
}

TEST(Csv, FormulasAreDisarmed) {
    EXPECT_EQ(HardwareCell("=1+1"), "'=1+1");
    EXPECT_EQ(HardwareCell("@SUM(A1)"), "'@SUM(A1)");
    EXPECT_EQ(HardwareCell("+1"), "'+1");
    EXPECT_EQ(HardwareCell("-1"), "'-1");
    EXPECT_EQ(HardwareCell("=cmd|'x',1"), "\"'=cmd|'x',1\"");
    EXPECT_EQ(HardwareCell(" =1"), "' =1");
    EXPECT_EQ(HardwareCell("a=1"), "a=1");
}

TEST(Csv, FormulasInFullWidthAreDisarmed) {
    EXPECT_EQ(HardwareCell("＝1"), "'＝1");
    EXPECT_EQ(HardwareCell("＋1"), "'＋1");
    EXPECT_EQ(HardwareCell("－1"), "'－1");
    EXPECT_EQ(HardwareCell("＠x"), "'＠x");
}

TEST(Csv, FormulasBehindASemicolonAreDisarmed) {
    EXPECT_EQ(HardwareCell("a;=1"), "\"a;'=1\"");
    EXPECT_EQ(HardwareCell("a;;+1; -2;b"), "\"a;;'+1;' -2;b\"");
    EXPECT_EQ(HardwareCell("a;＝1"), "\"a;'＝1\"");
}

TEST(Csv, NumberOfADeviceStaysOne) {
    Device device = DeviceAt("192.168.1.20");
    device.port = -5;
    EXPECT_THAT(CsvDocument(std::vector{device}), HasSubstr("192.168.1.20,-5,IPC"));
}

TEST(Csv, EveryTextOfADeviceIsDisarmedAndMadeSafe) {
    for (const Field& field : Fields()) {
        const auto* const member = std::get_if<std::string Device::*>(&field.member);
        if (member == nullptr || !field.csv) {
            continue;
        }
        Device device;
        device.*(*member) = "=\x1b[2J\n";
        const std::string text = CsvDocument(std::vector{device});
        EXPECT_EQ(text.find('\x1b'), std::string::npos) << field.name;
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2) << field.name;
        if (field.shown == nullptr) {
            EXPECT_THAT(text, HasSubstr("'=\\x1b[2J\\x0a")) << field.name;
        }
    }
}
