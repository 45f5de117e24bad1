#include "tools/lanscout/output/formats.h"

#include <gmock/gmock.h>

#include <algorithm>

using namespace Lanscout;
using testing::HasSubstr;

namespace {

Device Sample() {
    Device device;
    device.ip = "192.168.1.20";
    device.port = 80;
    device.onvif = true;
    device.hardware = "IPC-100";
    device.seenVia = {{"eth0", "192.168.1.2"}};
    return device;
}

std::string CsvHardware(const std::string& hardware) {
    Device device = Sample();
    device.hardware = hardware;
    const std::string text = CsvDocument({device});
    const auto start = text.find("80,") + 3;
    return text.substr(start, text.rfind(",,,unknown") - start);
}

}  // namespace

TEST(PlainLine, FieldsStandBetweenTabs) {
    EXPECT_EQ(PlainLine(Sample()),
              "192.168.1.20\t80\tIPC-100\t-\t-\tunknown\tonvif\t-\t-\t-\teth0");
}

TEST(PlainLine, TabsAndLineBreaksOfDevicesMakeNoFields) {
    Device device = Sample();
    device.hardware = "a\tb\nc";
    const std::string line = PlainLine(device);
    EXPECT_EQ(std::count(line.begin(), line.end(), '\t'), 10);
    EXPECT_THAT(line, HasSubstr("a\\x09b\\x0ac"));
}

TEST(Csv, HeadingAndLineEndsAreRfc4180) {
    EXPECT_EQ(CsvDocument({}),
              "ip,port,hardware,mac,maker,kind,protocols,name,model,page,interface\r\n");
}

TEST(Csv, CommasAndQuotesAreQuoted) {
    EXPECT_EQ(CsvHardware("a,b"), "\"a,b\"");
    EXPECT_EQ(CsvHardware("a\"b"), "\"a\"\"b\"");
}

TEST(Csv, FormulasAreDisarmed) {
    EXPECT_EQ(CsvHardware("=1+1"), "'=1+1");
    EXPECT_EQ(CsvHardware("@SUM(A1)"), "'@SUM(A1)");
    EXPECT_EQ(CsvHardware("+1"), "'+1");
    EXPECT_EQ(CsvHardware("-1"), "'-1");
    EXPECT_EQ(CsvHardware("=cmd|'x',1"), "\"'=cmd|'x',1\"");
}

TEST(Csv, PortStaysANumber) {
    Device device = Sample();
    device.port = -5;
    EXPECT_THAT(CsvDocument({device}), HasSubstr("192.168.1.20,-5,IPC-100"));
}

TEST(JsonReport, UnknownIsNull) {
    Report report;
    report.devices = {Sample()};
    const Json device = ReportToJson(report)["devices"][0];
    EXPECT_TRUE(device["mac"].is_null());
    EXPECT_EQ(device["hardware"], "IPC-100");
    EXPECT_EQ(device["protocols"], Json::array({"onvif"}));
}

TEST(JsonReport, IsCompleteOnlyWhenEverySearchCameToItsEnd) {
    Report report;
    EXPECT_FALSE(ReportToJson(report)["complete"]);
    report.searches = {{{"eth0", "192.168.1.2"}, Protocol::Onvif, Outcome::Done}};
    EXPECT_TRUE(ReportToJson(report)["complete"]);
    report.searches.push_back({{"eth1", "10.0.0.2"}, Protocol::Onvif, Outcome::CutShort});
    EXPECT_FALSE(ReportToJson(report)["complete"]);
}

TEST(JsonText, IsAsciiWithoutControls) {
    Device device = Sample();
    device.hardware = "\x1b[0m\u009b\u202e\x7f";
    const std::string text = DumpLine(DeviceToJson(device));
    EXPECT_TRUE(std::all_of(text.begin(), text.end() - 1, [](unsigned char c) {
        return c >= 0x20 && c < 0x7f;
    })) << text;
}

TEST(JsonText, InvalidUtf8DoesNotThrow) {
    EXPECT_THAT(DumpLine({{"a", "\xFF"}}), HasSubstr("\\ufffd"));
}
