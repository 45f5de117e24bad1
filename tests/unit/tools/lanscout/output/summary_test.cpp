#include "tools/lanscout/output/summary.h"

#include <gtest/gtest.h>

#include "tests/unit/support/fakeworld.h"

using namespace Lanscout;

namespace {

Report On(const std::vector<Target>& targets) {
    Report report;
    report.seconds = 4.24;
    for (const Target& target : targets) {
        report.searches.push_back({target, SourceId::Probes, Work::Onvif, Outcome::Done});
        report.searches.push_back({target, SourceId::UpnpSearch, Work::Upnp, Outcome::Done});
    }
    return report;
}

}  // namespace

TEST(Summary, OneDeviceIsNoPlural) {
    EXPECT_EQ(Counted(1, "device"), "1 device");
    EXPECT_EQ(Counted(0, "device"), "0 devices");
    EXPECT_EQ(Counted(12, "device"), "12 devices");
}

TEST(Summary, EachPlaceIsNamedOnce) {
    EXPECT_EQ(SummaryText(On({{"eth0", "10.0.0.1"}, {"", "10.0.0.2"}})),
              "No device answered on eth0 (10.0.0.1), 10.0.0.2 in 4.2 s");
}

TEST(Summary, ManyPlacesAreCounted) {
    std::vector<Target> targets;
    for (int i = 0; i < 9; ++i) {
        targets.push_back({"eth" + std::to_string(i), "10.0.0." + std::to_string(i)});
    }
    EXPECT_EQ(SummaryText(On(targets)),
              "No device answered on 9 addresses of this machine in 4.2 s");
    targets.pop_back();
    EXPECT_NE(SummaryText(On(targets)).find("eth7 (10.0.0.7)"), std::string::npos);
}

TEST(Summary, CamerasAreCountedAmongTheDevices) {
    Report report = On({{"eth0", "10.0.0.1"}});
    report.devices = {DeviceAt("10.0.0.3"), DeviceAt("10.0.0.4")};
    report.devices[1].kind = Kind::Other;
    EXPECT_EQ(SummaryText(report), "2 devices (1 camera) on eth0 (10.0.0.1) in 4.2 s");
    report.devices.erase(report.devices.begin());
    EXPECT_EQ(SummaryText(report), "1 device on eth0 (10.0.0.1) in 4.2 s");
}

TEST(Summary, SingleAddressesWereAskedFromNoParticularOneOfOurs) {
    EXPECT_EQ(SummaryText(On({{}})), "No device answered in 4.2 s");
}
