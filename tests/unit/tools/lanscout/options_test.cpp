#include "tools/lanscout/options.h"

#include <gmock/gmock.h>

#include "tests/unit/support/fakeworld.h"
#include "tests/unit/support/scratchfolder.h"

using namespace Lanscout;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

Options Right(const std::vector<std::string>& arguments) {
    FakeWorld world;
    const auto parsed = world.Parse(arguments);
    if (!std::holds_alternative<Options>(parsed)) {
        ADD_FAILURE() << world.terminal.words;
        return {};
    }
    return std::get<Options>(parsed);
}

std::string Wrong(const std::vector<std::string>& arguments) {
    FakeWorld world;
    const auto parsed = world.Parse(arguments);
    const int* const status = std::get_if<int>(&parsed);
    EXPECT_TRUE(status != nullptr && *status == 2) << "taken as right";
    EXPECT_EQ(world.terminal.output, "");
    EXPECT_THAT(world.terminal.words, StartsWith("lanscout: "));
    EXPECT_THAT(world.terminal.words, HasSubstr("\nTry 'lanscout --help'.\n"));
    return world.terminal.words;
}

}  // namespace

TEST(Options, WithoutAnyEveryInterfaceIsSearchedBothWaysForFiveSeconds) {
    const Options options = Right({});
    EXPECT_TRUE(options.request.interfaces.empty() && options.request.addresses.empty() &&
                options.request.to.empty());
    EXPECT_TRUE(options.request.onvif && options.request.upnp);
    EXPECT_TRUE(options.request.ipv4 && options.request.ipv6);
    EXPECT_EQ(options.request.timeout, seconds(5));
    EXPECT_EQ(options.request.maxTime, seconds(65));
    EXPECT_EQ(options.request.rate, 500);
    EXPECT_EQ(options.request.sourcePort, 0);
    EXPECT_EQ(options.request.atOnce, 16);
    EXPECT_EQ(options.output.format, "");
    EXPECT_EQ(options.output.sort, "ip");
    EXPECT_FALSE(options.output.sortGiven);
    EXPECT_TRUE(options.output.progress);
    EXPECT_FALSE(options.output.quiet);
    EXPECT_EQ(options.output.verbose, 0);
    EXPECT_EQ(options.output.colour, When::Auto);
    EXPECT_FALSE(options.watch);
}

TEST(Options, MaxTimeIsAMinuteMoreThanTheTimeoutUnlessGiven) {
    EXPECT_EQ(Right({"--timeout", "100"}).request.maxTime, seconds(160));
    EXPECT_EQ(Right({"--timeout", "100", "--max-time", "3"}).request.maxTime, seconds(3));
    EXPECT_EQ(Right({"--max-time", "7", "-t", "100"}).request.maxTime, seconds(7));
    EXPECT_EQ(Right({"--timeout", "86400"}).request.maxTime, seconds(86460));
}

TEST(Options, TimesHaveBounds) {
    for (const char* const wrong : {"0", "-1", "86401", "soon", "", "1.5", "99999999999"}) {
        EXPECT_THAT(Wrong({"--timeout", wrong}), HasSubstr("--timeout")) << wrong;
    }
    EXPECT_EQ(Right({"--max-time", "172800"}).request.maxTime, seconds(172800));
    Wrong({"--max-time", "172801"});
    Wrong({"--max-time", "0"});
    Wrong({"--watch", "0"});
    Wrong({"--watch", "86401"});
}

TEST(Options, PlacesMayBeRepeated) {
    const Options options =
        Right({"-i", "eth0", "--interface", "wlan0", "-a", "10.0.0.1", "--address", "10.0.0.2"});
    EXPECT_THAT(options.request.interfaces, ElementsAre("eth0", "wlan0"));
    EXPECT_THAT(options.request.addresses, ElementsAre("10.0.0.1", "10.0.0.2"));
    Wrong({"--address", "camera.local"});
    Wrong({"--address", "10.0.0.256"});
    Wrong({"--interface", "eth0", "wlan0"});
}

TEST(Options, OnlyTakesOneWay) {
    EXPECT_FALSE(Right({"--only", "onvif"}).request.upnp);
    EXPECT_TRUE(Right({"--only", "onvif"}).request.onvif);
    EXPECT_FALSE(Right({"--only", "upnp"}).request.onvif);
    EXPECT_TRUE(Right({"--only", "upnp"}).request.upnp);
    Wrong({"--only", "both"});
}

TEST(Options, OneAddressFamilyLeavesTheOtherOut) {
    EXPECT_TRUE(Right({"--ipv4"}).request.ipv4);
    EXPECT_FALSE(Right({"--ipv4"}).request.ipv6);
    EXPECT_TRUE(Right({"--ipv6"}).request.ipv6);
    EXPECT_FALSE(Right({"--ipv6"}).request.ipv4);
    EXPECT_THAT(Wrong({"--ipv4", "--ipv6"}), HasSubstr("choose one"));
}

TEST(Options, NumbersOfASearchHaveBounds) {
    EXPECT_EQ(Right({"--rate", "5000"}).request.rate, 5000);
    EXPECT_EQ(Right({"--source-port", "65535"}).request.sourcePort, 65535);
    EXPECT_EQ(Right({"--at-once", "1"}).request.atOnce, 1);
    Wrong({"--rate", "0"});
    Wrong({"--rate", "100001"});
    Wrong({"--source-port", "65536"});
    Wrong({"--source-port", "0"});
    Wrong({"--at-once", "0"});
    Wrong({"--at-once", "1001"});
}

TEST(Options, SingleAddressesMayBeRepeatedAndComeFromAFile) {
    const ScratchFolder folder;
    const std::string path = folder.Write("sites.txt", "10.40.0.1  # the gate\n\n10.50.0.0/30\n");
    const Options options =
        Right({"--to", "10.20.0.0/24", "--to", "10.30.0.5-10.30.0.40", "--to", "@" + path});
    EXPECT_EQ(options.request.to, (std::vector<AddressRange>{{0x0A140001, 0x0A1400FE},
                                                             {0x0A1E0005, 0x0A1E0028},
                                                             {0x0A280001, 0x0A280001},
                                                             {0x0A320001, 0x0A320002}}));
    folder.Write("sites.txt", "10.40.0.1\n10.50.0.\n");
    EXPECT_THAT(Wrong({"--to", "@" + path}), testing::AllOf(HasSubstr("--to"), HasSubstr(path)));
    Wrong({"--to", "10.0.0.0/8"});
    Wrong({"--to", "camera"});
    Wrong({"--to", "@/nonexistent"});
}

TEST(Options, SingleAddressesAreAskedByOnvifAndIpv4) {
    EXPECT_THAT(Wrong({"--to", "10.0.0.1", "--only", "upnp"}), HasSubstr("--only upnp"));
    EXPECT_THAT(Wrong({"--to", "10.0.0.1", "--ipv6"}), HasSubstr("--ipv6"));
    EXPECT_FALSE(Right({"--to", "10.0.0.1", "--only", "onvif"}).request.to.empty());
}

TEST(Options, EveryFormatHasAnOptionAndTheyExcludeEachOther) {
    for (const OutputFormat& format : OutputFormats()) {
        EXPECT_EQ(Right({"--" + std::string(format.name)}).output.format, format.name);
        for (const OutputFormat& other : OutputFormats()) {
            if (std::string(other.name) != format.name) {
                EXPECT_THAT(
                    Wrong({"--" + std::string(format.name), "--" + std::string(other.name)}),
                    HasSubstr("choose one of --table, --plain, --json, --jsonl, --csv"));
            }
        }
    }
}

TEST(Options, SortTakesTheCsvsColumns) {
    for (const std::string& name : CsvNames()) {
        const Options options = Right({"--sort", name});
        EXPECT_EQ(options.output.sort, name);
        EXPECT_TRUE(options.output.sortGiven);
    }
    Wrong({"--sort", "colour"});
    Wrong({"--sort", "scopes"});
}

TEST(Options, QuietMeansNoProgressAndNoLog) {
    EXPECT_FALSE(Right({"--quiet"}).output.progress);
    EXPECT_FALSE(Right({"--no-progress"}).output.progress);
    EXPECT_FALSE(Right({"--no-progress"}).output.quiet);
    EXPECT_THAT(Wrong({"--quiet", "--verbose"}), HasSubstr("--verbose"));
    EXPECT_EQ(Right({"-vv"}).output.verbose, 2);
}

TEST(Options, ColourIsOneOfThree) {
    EXPECT_EQ(Right({"--color", "always"}).output.colour, When::Always);
    EXPECT_EQ(Right({"--color", "never"}).output.colour, When::Never);
    EXPECT_EQ(Right({"--color", "auto"}).output.colour, When::Auto);
    Wrong({"--color", "sometimes"});
}

TEST(Options, WatchHasItsTimeOrHalfAMinute) {
    EXPECT_EQ(Right({"--watch"}).watch, seconds(30));
    EXPECT_EQ(Right({"--watch", "7"}).watch, seconds(7));
    EXPECT_EQ(Right({"--watch", "--jsonl"}).watch, seconds(30));
}

TEST(Options, WatchTakesFormatsThatTellEvents) {
    for (const OutputFormat& format : OutputFormats()) {
        const std::vector<std::string> arguments{"--watch", "--" + std::string(format.name)};
        if (format.watches) {
            Right(arguments);
        } else {
            EXPECT_THAT(Wrong(arguments), HasSubstr("use --jsonl"));
        }
    }
    EXPECT_FALSE(FormatNamed("json").watches);
    EXPECT_TRUE(FormatNamed("jsonl").watches);
}

TEST(Options, ComparisonTakesFormatsThatTellDifferences) {
    for (const OutputFormat& format : OutputFormats()) {
        const std::vector<std::string> arguments{"--compare", "x", "--" + std::string(format.name)};
        if (format.compares) {
            EXPECT_EQ(Right(arguments).compare, "x");
        } else {
            EXPECT_THAT(Wrong(arguments), HasSubstr("one document"));
        }
    }
    EXPECT_TRUE(FormatNamed("json").compares);
    EXPECT_FALSE(FormatNamed("csv").compares);
}

TEST(Options, TasksExcludeEachOther) {
    EXPECT_THAT(Wrong({"--watch", "--compare", "x"}), HasSubstr("cannot be combined"));
    EXPECT_THAT(Wrong({"--state", "x"}), HasSubstr("--watch"));
    EXPECT_THAT(Wrong({"--state", "x", "--compare", "y"}), HasSubstr("--watch"));
    EXPECT_EQ(Right({"--watch", "--state", "x"}).state, "x");
}

TEST(Options, EscapeSequencesOfAnArgumentAreNotRepeated) {
    EXPECT_THAT(Wrong({"--only", "\x1b[2J"}), HasSubstr("\\x1b[2J"));
    EXPECT_THAT(Wrong({"--\x1b[2J"}), testing::Not(HasSubstr("\x1b")));
}

TEST(Options, HelpAndVersionAreAnswers) {
    for (const char* const asked : {"--help", "--version"}) {
        FakeWorld world;
        EXPECT_EQ(world.Run({asked}), 0);
        EXPECT_THAT(world.terminal.output, HasSubstr("lanscout"));
        EXPECT_EQ(world.terminal.words, "");
        EXPECT_TRUE(world.requests.empty());
    }
}

TEST(Options, FileHasThemALineEach) {
    const ScratchFolder folder;
    const std::string path = folder.Write(
        "watch.conf", "# comment\ninterface=\"eth0\"\nwatch=60\njsonl=true\ntimeout=9\n");
    const Options options = Right({"--config", path, "--timeout", "3"});
    EXPECT_THAT(options.request.interfaces, ElementsAre("eth0"));
    EXPECT_EQ(options.watch, seconds(60));
    EXPECT_EQ(options.output.format, "jsonl");
    EXPECT_EQ(options.request.timeout, seconds(3)) << "the command line comes first";
    EXPECT_EQ(options.config, path);
    folder.Write("watch.conf", "nonsense=1\n");
    EXPECT_THAT(Wrong({"--config", path}), HasSubstr("nonsense"));
    Wrong({"--config", "/nonexistent/file"});
}
