#include "tools/lanscout/output/plain.h"

#include <gmock/gmock.h>

#include "finder/device/fields.h"
#include "tests/unit/support/fakeworld.h"

using namespace Lanscout;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

// An output on a made-up terminal.
struct Stage {
    explicit Stage(bool sortGiven = false) {
        settings.format = "plain";
        settings.sortGiven = sortGiven;
    }

    void Tell(DeviceEvent::What what, std::size_t number, const Device& device) {
        DeviceEvent event;
        event.what = what;
        event.number = number;
        event.device = device;
        output.OnEvent(event);
    }
    std::string At(double seconds, std::size_t running = 1) {
        terminal.output.clear();
        output.OnProgress({}, {seconds, 10, running});
        return terminal.output;
    }

    FakeTerminal terminal;
    OutputSettings settings;
    WriteFile writeFile;
    Console console{terminal, settings, {}};
    PlainOutput output{{console, settings, writeFile}};
};

using What = DeviceEvent::What;

}  // namespace

TEST(PlainLine, FieldsStandBetweenTabs) {
    EXPECT_THAT(PlainLine(DeviceAt("192.168.1.20")),
                StartsWith("192.168.1.20\t80\tIPC\t-\t-\tcamera\tonvif\t-\tIPC\t-\teth0\t-"));
}

TEST(PlainLine, HasAsManyFieldsAsTheCsvHasColumnsWhateverDevicesSay) {
    for (const Field& field : Fields()) {
        Device device = DeviceAt("1.2.3.4");
        if (const auto* const member = std::get_if<std::string Device::*>(&field.member)) {
            device.*(*member) = "a\tb\nc\x1b";
        }
        if (const auto* const member =
                std::get_if<std::vector<std::string> Device::*>(&field.member)) {
            (device.*(*member)) = {"a\tb\nc\x1b"};
        }
        const std::string line = PlainLine(device);
        EXPECT_EQ(std::count(line.begin(), line.end(), '\t'),
                  static_cast<long>(CsvNames().size()) - 1)
            << field.name;
        EXPECT_EQ(line.find_first_of("\n\x1b"), std::string::npos) << field.name;
    }
}

TEST(Plain, LineIsWrittenWhenNothingWasAddedForTwoSeconds) {
    Stage stage;
    EXPECT_EQ(stage.At(1), "");
    stage.Tell(What::Found, 0, DeviceAt("10.0.0.1"));
    EXPECT_EQ(stage.At(2), "");
    stage.Tell(What::Updated, 0, DeviceAt("10.0.0.1", "more"));
    EXPECT_EQ(stage.At(3.9), "");
    EXPECT_THAT(stage.At(4), HasSubstr("\tmore\t"));
    EXPECT_EQ(stage.At(9), "") << "once";
}

TEST(Plain, LineThatWasWrittenIsNotWrittenAgainForAnUpdate) {
    Stage stage;
    stage.Tell(What::Found, 0, DeviceAt("10.0.0.1"));
    EXPECT_NE(stage.At(3), "");
    stage.Tell(What::Updated, 0, DeviceAt("10.0.0.1", "more"));
    EXPECT_EQ(stage.At(9), "");
}

TEST(Plain, WithdrawnDeviceHasNoLine) {
    Stage stage;
    stage.Tell(What::Found, 0, DeviceAt("10.0.0.1"));
    stage.Tell(What::Found, 1, DeviceAt("10.0.0.2"));
    stage.Tell(What::Withdrawn, 0, DeviceAt("10.0.0.1"));
    EXPECT_THAT(stage.At(5), StartsWith("10.0.0.2"));
}

TEST(Plain, AllIsWrittenWhenNothingRunsAnyMore) {
    Stage stage;
    stage.Tell(What::Found, 0, DeviceAt("10.0.0.1"));
    EXPECT_THAT(stage.At(0.5, 0), StartsWith("10.0.0.1"));
}

TEST(Plain, WithAnOrderTheLinesComeAtTheEnd) {
    Stage stage(true);
    stage.Tell(What::Found, 0, DeviceAt("10.0.0.1"));
    EXPECT_EQ(stage.At(9, 0), "");
    stage.output.EndSearch(RoundWith({DeviceAt("10.0.0.2"), DeviceAt("10.0.0.1")}));
    EXPECT_EQ(stage.terminal.output,
              PlainLine(DeviceAt("10.0.0.2")) + "\n" + PlainLine(DeviceAt("10.0.0.1")) + "\n");
}
