// The command with everything around it made up: what each task writes, and its exit status.
#include "tools/lanscout/command.h"

#include <gmock/gmock.h>

#include <cerrno>

#include "tests/unit/support/fakeworld.h"

using namespace Lanscout;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

constexpr char kNoSpace[] = "lanscout: cannot write the result: No space left on device\n";

Problem NoticeOf(const std::string& what) {
    Problem problem;
    problem.weight = Problem::Weight::Notice;
    problem.what = what;
    return problem;
}

FakeWorld WorldWith(const std::vector<Report>& rounds) {
    return FakeWorld(rounds);
}

FakeWorld WorldWithOne() {
    return WorldWith({RoundWith({DeviceAt("10.0.0.1")})});
}

// A file that --json would have written.
std::string Earlier(const std::vector<Device>& devices) {
    return ReportToJson(RoundWith(devices)).dump();
}

std::size_t LinesOf(const std::string& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

std::vector<std::string> AllFormats() {
    std::vector<std::string> options;
    for (const OutputFormat& format : OutputFormats()) {
        options.push_back("--" + std::string(format.name));
    }
    return options;
}

}  // namespace

TEST(SearchTask, ElsewhereThanInATerminalALineADevice) {
    FakeWorld world = WorldWith({RoundWith({DeviceAt("10.0.0.2"), DeviceAt("10.0.0.1")})});
    EXPECT_EQ(world.Run({}), 0);
    EXPECT_EQ(LinesOf(world.terminal.output), 2U);
    EXPECT_THAT(world.terminal.output, StartsWith("10.0.0.2\t80\tIPC\t"));
    EXPECT_EQ(world.terminal.words, "");
}

TEST(SearchTask, InATerminalATableAndASummary) {
    FakeWorld world = WorldWith({RoundWith({DeviceAt("10.0.0.2"), DeviceAt("10.0.0.1")})});
    world.terminal.outputIsTerminal = true;
    EXPECT_EQ(world.Run({"--no-progress", "--color", "never"}), 0);
    EXPECT_EQ(world.terminal.output,
              "IP        PORT  MAC  KIND    FOUND BY  MODEL\n"
              "10.0.0.1  80    N/A  camera  onvif     IPC\n"
              "10.0.0.2  80    N/A  camera  onvif     IPC\n");
    EXPECT_EQ(world.terminal.words, "2 devices (2 cameras) on eth0 (10.0.0.254) in 5.0 s\n");
}

TEST(SearchTask, RequestIsWhatTheOptionsSay) {
    FakeWorld world = WorldWithOne();
    world.Run({"--interface", "eth7", "--timeout", "9", "--rate", "77"});
    ASSERT_EQ(world.requests.size(), 1U);
    EXPECT_EQ(world.requests[0].interfaces, std::vector<std::string>{"eth7"});
    EXPECT_EQ(world.requests[0].timeout, std::chrono::seconds(9));
    EXPECT_EQ(world.requests[0].rate, 77);
}

TEST(SearchTask, NothingFoundIsStatusOneAndNoSearchStatusThree) {
    EXPECT_EQ(WorldWith({RoundWith({})}).Run({}), 1);
    EXPECT_EQ(WorldWith({RoundWith({}, "T", Outcome::Interrupted)}).Run({}), 1);
    EXPECT_EQ(WorldWith({RoundWith({}, "T", Outcome::Failed)}).Run({}), 3);
    EXPECT_EQ(WorldWith({Report()}).Run({}), 3);
}

TEST(SearchTask, WhatAFailedSearchFoundStillCounts) {
    EXPECT_EQ(WorldWith({RoundWith({DeviceAt("10.0.0.1")}, "T", Outcome::Failed)}).Run({}), 0);
}

TEST(SearchTask, SortOrdersEveryFormatThatHasAList) {
    for (const std::string format : {"--table", "--plain", "--csv", "--json"}) {
        FakeWorld world =
            WorldWith({RoundWith({DeviceAt("10.0.0.1", "B"), DeviceAt("10.0.0.2", "A")})});
        world.Run({format, "--sort", "hardware"});
        EXPECT_LT(world.terminal.output.find("10.0.0.2"), world.terminal.output.find("10.0.0.1"))
            << format;
    }
}

TEST(SearchTask, OutputThatCannotBeWrittenIsStatusThreeInEveryFormat) {
    for (const std::string& format : AllFormats()) {
        FakeWorld world = WorldWithOne();
        world.terminal.outputError = ENOSPC;
        EXPECT_EQ(world.Run({format, "--quiet"}), 3) << format;
        EXPECT_EQ(world.terminal.words, kNoSpace) << format;
    }
}

TEST(SearchTask, QuietSaysNothingInAnyFormat) {
    for (const std::string& format : AllFormats()) {
        Report round = RoundWith({DeviceAt("10.0.0.1")});
        round.problems = {NoticeOf("arping is missing")};
        FakeWorld world = WorldWith({round});
        world.terminal.errorIsTerminal = true;
        EXPECT_EQ(world.Run({format, "--quiet"}), 0) << format;
        EXPECT_EQ(world.terminal.words, "") << format;
        EXPECT_NE(world.terminal.output, "") << format;
    }
}

TEST(SearchTask, QuietStillTellsErrors) {
    Report round = RoundWith({}, "T", Outcome::Failed);
    round.problems = {NoticeOf("broken")};
    round.problems[0].weight = Problem::Weight::Error;
    FakeWorld world = WorldWith({round});
    EXPECT_EQ(world.Run({"--quiet"}), 3);
    EXPECT_EQ(world.terminal.words, "lanscout: broken\n");
}

TEST(SearchTask, PageIsWrittenBesideEveryFormat) {
    for (const std::string& format : AllFormats()) {
        FakeWorld world = WorldWithOne();
        EXPECT_EQ(world.Run({format, "--html", "page.html"}), 0);
        EXPECT_THAT(world.files["page.html"], HasSubstr("10.0.0.1")) << format;
    }
}

TEST(SearchTask, PageThatCannotBeWrittenIsToldBeforeTheSearch) {
    FakeWorld world = WorldWithOne();
    world.unwritable = "page.html";
    EXPECT_EQ(world.Run({"--html", "page.html"}), 2);
    EXPECT_TRUE(world.requests.empty());
    EXPECT_THAT(world.terminal.words, StartsWith("lanscout: cannot write page.html"));
}

TEST(SearchTask, PageThatCannotBeWrittenAfterTheSearchIsStatusThree) {
    const Report round = RoundWith({DeviceAt("10.0.0.1")});
    // The disk fills up while the search runs.
    FakeWorld filling({round});
    filling.searchTakes = std::chrono::seconds(1);
    const Machine machine{filling.terminal,
                          {},
                          filling.signals,
                          filling.service,
                          filling.Files(),
                          [&](const Request& request, const Wake& wake, Observer& observer) {
                              filling.unwritable = "page.html";
                              return filling.Search(request, wake, observer);
                          },
                          [&] { return filling.signals.now; }};
    const auto parsed = filling.Parse({"--html", "page.html"});
    EXPECT_EQ(RunCommand(std::get<Options>(parsed), machine, nullptr), 3);
    EXPECT_THAT(filling.terminal.output, StartsWith("10.0.0.1\t")) << "the other result is there";
}

TEST(SearchTask, LogLinesAreShownByLevelAndMadeSafe) {
    const auto said = [](const std::vector<std::string>& arguments) {
        FakeWorld world = WorldWithOne();
        world.logLines = {{3, "failure\x1b[2J"}, {4, "detail"}};
        world.Run(arguments);
        return world.terminal.words;
    };
    EXPECT_EQ(said({}), "");
    EXPECT_EQ(said({"-v"}), "failure\\x1b[2J\n");
    EXPECT_EQ(said({"-vv"}), "failure\\x1b[2J\ndetail\n");
}

TEST(SearchTask, InterruptedSearchSaysSo) {
    FakeWorld world = WorldWith({RoundWith({DeviceAt("10.0.0.1")}, "T", Outcome::Interrupted)});
    EXPECT_EQ(world.Run({"--table"}), 0);
    EXPECT_THAT(world.terminal.words, EndsWith(", interrupted\n"));
}

TEST(SearchTask, NameOfAnInterfaceIsMadeSafe) {
    Report round = RoundWith({DeviceAt("10.0.0.1")});
    round.searches[0].target.interface = "\x1b[31mx";
    FakeWorld world = WorldWith({round});
    world.Run({"--table"});
    EXPECT_THAT(world.terminal.words, AllOf(HasSubstr("\\x1b[31mx"), Not(HasSubstr("\x1b"))));
}

TEST(CompareTask, SameListIsStatusZeroAndNoLine) {
    FakeWorld world = WorldWithOne();
    world.files["before"] = Earlier({DeviceAt("10.0.0.1")});
    EXPECT_EQ(world.Run({"--compare", "before"}), 0);
    EXPECT_EQ(world.terminal.output, "");
    EXPECT_THAT(world.terminal.words, StartsWith("The same as before; now 1 device"));
}

TEST(CompareTask, DifferencesAreStatusFour) {
    FakeWorld world =
        WorldWith({RoundWith({DeviceAt("10.0.0.2", "new"), DeviceAt("10.0.0.3", "b")})});
    world.files["before"] = Earlier({DeviceAt("10.0.0.1", "old"), DeviceAt("10.0.0.3", "a")});
    EXPECT_EQ(world.Run({"--compare", "before"}), 4);
    EXPECT_EQ(world.terminal.output,
              "missing\t10.0.0.1\t-\told\t-\n"
              "new\t10.0.0.2\t-\tnew\t-\n"
              "changed\t10.0.0.3\t-\tb\thardware: a -> b\n");
    EXPECT_THAT(world.terminal.words, StartsWith("1 missing, 1 new, 1 changed; now 2 devices"));
}

TEST(CompareTask, TableIsAligned) {
    FakeWorld world = WorldWith({RoundWith({DeviceAt("10.0.0.3", "b")})});
    world.files["before"] = Earlier({DeviceAt("10.0.0.3", "a")});
    EXPECT_EQ(world.Run({"--compare", "before", "--table"}), 4);
    EXPECT_EQ(world.terminal.output,
              "changed   10.0.0.3           N/A                b  (hardware: a -> b)\n");
}

TEST(CompareTask, JsonDocumentHasTheComparison) {
    FakeWorld world = WorldWith({RoundWith({DeviceAt("10.0.0.2")})});
    world.files["before"] = Earlier({DeviceAt("10.0.0.1")});
    EXPECT_EQ(world.Run({"--compare", "before", "--json"}), 4);
    const Json document = Json::parse(world.terminal.output);
    EXPECT_EQ(document["devices"][0]["ip"], "10.0.0.2");
    EXPECT_EQ(document["compare"]["missing"][0]["ip"], "10.0.0.1");
    EXPECT_EQ(document["compare"]["new"][0]["ip"], "10.0.0.2");
    EXPECT_EQ(document["compare"]["same"], false);
}

TEST(CompareTask, SearchThatWasNotCompleteIsToldEvenQuietly) {
    FakeWorld world = WorldWith({RoundWith({}, "T", Outcome::CutShort)});
    world.files["before"] = Earlier({DeviceAt("10.0.0.1")});
    EXPECT_EQ(world.Run({"--quiet", "--compare", "before"}), 4);
    EXPECT_EQ(world.terminal.words,
              "lanscout: the search was not complete, so that devices may be called missing that "
              "are there\n");
}

TEST(CompareTask, QuietSaysNothingOfACompleteOne) {
    FakeWorld world = WorldWith({RoundWith({})});
    world.files["before"] = Earlier({DeviceAt("10.0.0.1")});
    EXPECT_EQ(world.Run({"--quiet", "--compare", "before"}), 4);
    EXPECT_EQ(world.terminal.words, "");
    EXPECT_EQ(LinesOf(world.terminal.output), 1U);
}

TEST(CompareTask, WithoutASearchNothingIsCompared) {
    FakeWorld world = WorldWith({RoundWith({}, "T", Outcome::Failed)});
    world.files["before"] = Earlier({DeviceAt("10.0.0.1")});
    EXPECT_EQ(world.Run({"--compare", "before"}), 3);
    EXPECT_EQ(world.terminal.output, "");
}

TEST(CompareTask, WrongFilesAreToldBeforeTheSearch) {
    FakeWorld world = WorldWithOne();
    world.files["text"] = "hello";
    world.files["list"] = "[]";
    world.files["large"] = std::string(kLongestDocumentBytes + 1, ' ');
    for (const std::string file : {"text", "list", "large", "absent"}) {
        EXPECT_EQ(world.Run({"--compare", file}), 2) << file;
        EXPECT_THAT(world.terminal.words, HasSubstr(file));
    }
    EXPECT_TRUE(world.requests.empty());
}

TEST(CompareTask, LongestDocumentIsThirtyTwoMebibytes) {
    EXPECT_EQ(kLongestDocumentBytes, 33554432U);
}

TEST(CompareTask, OutputThatCannotBeWrittenIsStatusThree) {
    for (const std::string format : {"--table", "--plain", "--json"}) {
        FakeWorld world = WorldWithOne();
        world.files["before"] = Earlier({});
        world.terminal.outputError = ENOSPC;
        EXPECT_EQ(world.Run({format, "--quiet", "--compare", "before"}), 3) << format;
        EXPECT_EQ(world.terminal.words, kNoSpace);
    }
}

TEST(CompareTask, WritesThePageToo) {
    FakeWorld world = WorldWithOne();
    world.files["before"] = Earlier({});
    world.Run({"--compare", "before", "--html", "page.html"});
    EXPECT_THAT(world.files["page.html"], HasSubstr("10.0.0.1"));
}

TEST(CompareTask, TextsOfTheFileAreMadeSafe) {
    FakeWorld world = WorldWith({RoundWith({})});
    Device before = DeviceAt("10.0.0.1");
    before.hardware = "\x1b[2J";
    world.files["before"] = Earlier({before});
    for (const std::string format : {"--table", "--plain"}) {
        world.rounds = {RoundWith({})};
        world.Run({format, "--compare", "before"});
    }
    EXPECT_THAT(world.terminal.output, AllOf(HasSubstr("\\x1b[2J"), Not(HasSubstr("\x1b"))));
}
