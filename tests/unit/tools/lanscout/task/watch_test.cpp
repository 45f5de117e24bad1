#include "tools/lanscout/task/watch.h"

#include <gmock/gmock.h>

#include <cerrno>

#include "tests/unit/support/fakeworld.h"

using namespace Lanscout;
using std::chrono::seconds;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

FakeWorld WorldWith(const std::vector<Report>& rounds) {
    return FakeWorld(rounds);
}

Problem Broken() {
    Problem problem;
    problem.what = "broken";
    return problem;
}

Report RoundWithProblem() {
    Report round = RoundWith({});
    round.problems = {Broken()};
    return round;
}

std::size_t CountOf(const std::string& text, const std::string& what) {
    std::size_t count = 0;
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
        ++count;
    }
    return count;
}

std::vector<std::string> EventsOf(const std::string& lines) {
    std::vector<std::string> events;
    std::istringstream text(lines);
    for (std::string line; std::getline(text, line);) {
        events.push_back(Json::parse(line)["event"]);
    }
    return events;
}

}  // namespace

TEST(WatchTask, TellsWhatBecomesOfDevicesAndNothingElse) {
    Device moved = DeviceAt("10.0.0.1");
    moved.mac = "00:1B:FF:01:02:03";
    Device there = moved;
    moved.ip = "10.0.0.9";
    FakeWorld world = WorldWith({RoundWith({there}, "1"), RoundWith({moved}, "2"),
                                 RoundWith({}, "3"), RoundWith({}, "4"), RoundWith({moved}, "5")});
    EXPECT_EQ(world.Run({"--watch", "--jsonl"}), 0);
    EXPECT_THAT(EventsOf(world.terminal.output),
                ElementsAre("appeared", "moved", "gone", "returned"));
    EXPECT_EQ(world.terminal.words, "");
}

TEST(WatchTask, PlainLineHasTimeWhatDetailsAndTheDevice) {
    FakeWorld world = WorldWith(
        {RoundWith({DeviceAt("10.0.0.1", "a")}, "1"), RoundWith({DeviceAt("10.0.0.1", "b")}, "2")});
    world.Run({"--watch", "--plain"});
    EXPECT_THAT(world.terminal.output,
                StartsWith("2026-11-21T08:00:00Z\tappeared\t-\t10.0.0.1\t80\ta\t"));
    EXPECT_THAT(world.terminal.output,
                HasSubstr("\n2\tchanged\thardware: a -> b\t10.0.0.1\t80\tb\t"));
}

TEST(WatchTask, TableFormatHasALineForPeople) {
    FakeWorld world =
        WorldWith({RoundWith({DeviceAt("10.0.0.1")}, "1"), RoundWith({}, "2"), RoundWith({}, "3")});
    world.Run({"--watch", "--table"});
    EXPECT_EQ(world.terminal.output,
              "2026-11-21T08:00:00Z  appeared  10.0.0.1           N/A                IPC\n"
              "3  gone      10.0.0.1           N/A                IPC  (last seen 1)\n");
}

TEST(WatchTask, SearchesBeginEveryInterval) {
    FakeWorld world = WorldWith({RoundWith({}), RoundWith({}), RoundWith({})});
    std::vector<FakeSignals::Clock::time_point> starts;
    const Machine machine{world.terminal,
                          {},
                          world.signals,
                          world.service,
                          world.Files(),
                          [&](const Request& request, const Wake& wake, Observer& observer) {
                              starts.push_back(world.signals.now);
                              return world.Search(request, wake, observer);
                          },
                          [&] { return world.signals.now; }};
    RunCommand(std::get<Options>(world.Parse({"--watch", "12"})), machine, nullptr);
    ASSERT_EQ(starts.size(), 3U);
    EXPECT_EQ(starts[1] - starts[0], seconds(12));
    EXPECT_EQ(starts[2] - starts[1], seconds(12));
}

TEST(WatchTask, SearchThatTakesLongerIsFollowedAtOnce) {
    FakeWorld world = WorldWith({RoundWith({}), RoundWith({})});
    world.searchTakes = seconds(20);
    const auto start = world.signals.now;
    world.Run({"--watch", "12"});
    EXPECT_EQ(world.signals.now - start, seconds(40));
}

TEST(WatchTask, StatusSaysWhetherSomethingIsThere) {
    EXPECT_EQ(WorldWith({RoundWith({DeviceAt("10.0.0.1")})}).Run({"--watch"}), 0);
    EXPECT_EQ(WorldWith({RoundWith({})}).Run({"--watch"}), 1);
    EXPECT_EQ(WorldWith({RoundWith({}, "T", Outcome::Failed)}).Run({"--watch"}), 3);
    const Device device = DeviceAt("10.0.0.1");
    EXPECT_EQ(WorldWith({RoundWith({device}), RoundWith({}), RoundWith({})}).Run({"--watch"}), 1)
        << "what is gone is not there";
}

TEST(WatchTask, LastingProblemIsToldOnceAndAgainWhenItIsBack) {
    FakeWorld lasting = WorldWith({RoundWithProblem(), RoundWithProblem(), RoundWithProblem()});
    lasting.Run({"--watch"});
    EXPECT_EQ(lasting.terminal.words, "lanscout: broken\n");
    FakeWorld back = WorldWith({RoundWithProblem(), RoundWith({}), RoundWithProblem()});
    back.Run({"--watch"});
    EXPECT_EQ(back.terminal.words, "lanscout: broken\nlanscout: broken\n");
}

TEST(WatchTask, TooManyDevicesAreToldAgainWhenTheyAreBack) {
    std::vector<Device> flood;
    for (std::size_t i = 0; i <= WatchList::kMostDevices; ++i) {
        flood.push_back(DeviceAt("10.0." + std::to_string(i >> 8) + "." + std::to_string(i & 255)));
    }
    std::vector<Device> fewer(flood.begin(), flood.end() - 1);
    FakeWorld world =
        WorldWith({RoundWith(flood), RoundWith(flood), RoundWith(fewer), RoundWith(flood)});
    world.Run({"--watch", "--jsonl"});
    EXPECT_EQ(CountOf(world.terminal.words, "more than 10000 devices"), 2U);
}

TEST(WatchTask, OutputThatCannotBeWrittenEndsItInEveryFormat) {
    for (const std::string format : {"--table", "--plain", "--jsonl"}) {
        FakeWorld world =
            WorldWith({RoundWith({DeviceAt("10.0.0.1")}), RoundWith({}), RoundWith({})});
        world.terminal.outputError = EPIPE;
        EXPECT_EQ(world.Run({"--watch", format}), 3) << format;
        EXPECT_EQ(world.requests.size(), 1U) << format;
        EXPECT_EQ(world.terminal.words, "lanscout: cannot write the result: Broken pipe\n");
    }
}

TEST(WatchTask, PageIsWrittenAfterEveryRoundWithWhatIsThere) {
    FakeWorld world = WorldWith({RoundWith({DeviceAt("10.0.0.1")}), RoundWith({})});
    world.Run({"--watch", "--html", "page.html"});
    EXPECT_EQ(world.writes, 2);
    EXPECT_THAT(world.files["page.html"], HasSubstr("10.0.0.1")) << "missed once is not gone";
}

TEST(WatchTask, GoesOnWithoutItsPageAndSaysSoOnce) {
    FakeWorld world = WorldWith({RoundWith({}), RoundWith({}), RoundWith({DeviceAt("10.0.0.1")})});
    const Machine machine{world.terminal,
                          {},
                          world.signals,
                          world.service,
                          world.Files(),
                          [&](const Request& request, const Wake& wake, Observer& observer) {
                              world.unwritable = "page.html";
                              return world.Search(request, wake, observer);
                          },
                          [&] { return world.signals.now; }};
    EXPECT_EQ(
        RunCommand(std::get<Options>(world.Parse({"--watch", "--html", "page.html", "--jsonl"})),
                   machine, nullptr),
        0);
    EXPECT_EQ(world.terminal.words,
              "lanscout: cannot write page.html: No space left on device; the watch goes on "
              "without it\n");
    EXPECT_THAT(EventsOf(world.terminal.output), ElementsAre("appeared"));
}

TEST(WatchTask, WaitingIsDrawnAndErasedAtTheEnd) {
    FakeWorld world =
        WorldWith({RoundWith({DeviceAt("10.0.0.1")}), RoundWith({DeviceAt("10.0.0.1")})});
    world.terminal.outputIsTerminal = true;
    world.Run({"--watch", "7"});
    EXPECT_THAT(world.terminal.output, HasSubstr("1 device there; next search in 2 s"));
    EXPECT_THAT(world.terminal.output, HasSubstr("1 device there; next search in 1 s"));
    EXPECT_THAT(world.terminal.output, testing::EndsWith("\x1b[1A\r\x1b[2K\n\x1b[1A"));
}

TEST(WatchTask, AfterAStopTheShellsTextIsNotDrawnOver) {
    FakeWorld world =
        WorldWith({RoundWith({DeviceAt("10.0.0.1")}), RoundWith({DeviceAt("10.0.0.1")})});
    world.terminal.outputIsTerminal = true;
    std::size_t shell = 0;
    world.signals.onWait = [&] {
        if (shell == 0) {
            world.signals.resumed = true;
            world.terminal.output += "[1]+ Stopped\n$ fg\nlanscout\n";
            shell = world.terminal.output.size();
        }
    };
    world.Run({"--watch", "8"});
    EXPECT_THAT(world.terminal.output.substr(shell),
                StartsWith("1 device there; next search in 2 s"))
        << "without a sequence that goes up into the shell's lines";
}

TEST(WatchTask, StopWhileASearchRunsIsNotDrawnOverEither) {
    FakeWorld world = WorldWith({RoundWith({DeviceAt("10.0.0.1")})});
    world.terminal.outputIsTerminal = true;
    world.onSearch = [&] {
        world.signals.resumed = true;
        world.terminal.output.clear();
    };
    world.Run({"--watch", "8"});
    EXPECT_EQ(CountOf(world.terminal.output, "\x1b[1A"), 0U);
}

TEST(WatchTask, QuietTellsEventsAlone) {
    Report round = RoundWith({DeviceAt("10.0.0.1")});
    round.problems = {Broken()};
    round.problems[0].weight = Problem::Weight::Notice;
    FakeWorld world = WorldWith({round, round});
    world.terminal.errorIsTerminal = true;
    world.Run({"--watch", "--quiet", "--jsonl"});
    EXPECT_EQ(world.terminal.words, "");
    EXPECT_THAT(EventsOf(world.terminal.output), ElementsAre("appeared"));
}

TEST(WatchTask, ServiceManagerHearsOfIt) {
    FakeWorld world = WorldWith({RoundWith({DeviceAt("10.0.0.1")}), RoundWith({})});
    world.Run({"--watch", "30"});
    EXPECT_THAT(world.service.told, ElementsAre("ready", "1 device there", "1 device there"));
    EXPECT_GE(world.service.alive, 25) << "in searches and between them";
}

TEST(WatchState, RestartIsNoNews) {
    FakeWorld world = WorldWith({RoundWith({DeviceAt("10.0.0.1")})});
    EXPECT_EQ(world.Run({"--watch", "--jsonl", "--state", "list"}), 0);
    FakeWorld restarted =
        WorldWith({RoundWith({DeviceAt("10.0.0.1")}), RoundWith({DeviceAt("10.0.0.1")})});
    restarted.files["list"] = world.files["list"];
    EXPECT_EQ(restarted.Run({"--watch", "--jsonl", "--state", "list"}), 0);
    EXPECT_EQ(restarted.terminal.output, "");
}

TEST(WatchState, WhatWentAwayMeanwhileIsGone) {
    FakeWorld world = WorldWith({RoundWith({DeviceAt("10.0.0.1")}, "1")});
    world.Run({"--watch", "--jsonl", "--state", "list"});
    FakeWorld restarted =
        WorldWith({RoundWith({}, "2"), RoundWith({}, "3"), RoundWith({DeviceAt("10.0.0.1")}, "4")});
    restarted.files["list"] = world.files["list"];
    restarted.Run({"--watch", "--jsonl", "--state", "list"});
    EXPECT_THAT(EventsOf(restarted.terminal.output), ElementsAre("gone", "returned"));
    EXPECT_THAT(restarted.terminal.output, HasSubstr(R"("lastSeen":"1")"));
}

TEST(WatchState, IsWrittenEveryTenSecondsAtMostAndAtTheEnd) {
    FakeWorld world = WorldWith(std::vector<Report>(7, RoundWith({})));
    world.searchTakes = seconds(4);
    world.Run({"--watch", "4", "--state", "list"});
    // Rounds end after 4, 8, 12, 16, 20, 24 and 28 s; at 28 s the end writes once more.
    EXPECT_EQ(world.writes, 4);
}

TEST(WatchState, FileOfSomethingElseIsAnErrorAndStays) {
    FakeWorld world = WorldWith({RoundWith({DeviceAt("10.0.0.1")})});
    for (const std::string text : {"", "hello", "{}", "[]", R"({"watch":2,"devices":[]})",
                                   R"({"watch":1})", R"({"watch":1,"devices":[{}]})",
                                   R"({"watch":1,"devices":[{"present":true,"lastSeen":"x"}]})"}) {
        world.files["list"] = text;
        EXPECT_EQ(world.Run({"--watch", "--state", "list"}), 2) << text;
        EXPECT_EQ(world.files["list"], text);
    }
    EXPECT_TRUE(world.requests.empty());
}

TEST(WatchState, FileThatCannotBeWrittenIsToldBeforeTheSearch) {
    FakeWorld world = WorldWith({RoundWith({})});
    world.unwritable = "list";
    EXPECT_EQ(world.Run({"--watch", "--state", "list"}), 2);
    EXPECT_TRUE(world.requests.empty());
}

TEST(WatchHangup, OptionsAreReadAgainAndTheListStays) {
    FakeWorld world =
        WorldWith({RoundWith({DeviceAt("10.0.0.1")}), RoundWith({DeviceAt("10.0.0.1")})});
    world.signals.onWait = [&] { world.signals.hungUp = world.requests.size() == 1; };
    world.rereads = {{"--watch", "--jsonl", "--timeout", "9"}};
    world.Run({"--watch", "--jsonl"});
    ASSERT_EQ(world.requests.size(), 2U);
    EXPECT_EQ(world.requests[1].timeout, seconds(9));
    EXPECT_THAT(EventsOf(world.terminal.output), ElementsAre("appeared"));
    EXPECT_THAT(world.service.told,
                ElementsAre("ready", "1 device there", "reloading", "ready", "1 device there"));
}

TEST(WatchHangup, WrongOptionsChangeNothing) {
    for (const std::vector<std::string>& wrong : std::vector<std::vector<std::string>>{
             {"--watch", "soon"}, {"--json"}, {"--watch", "--state", "x"}}) {
        FakeWorld world = WorldWith({RoundWith({}), RoundWith({})});
        world.signals.onWait = [&] { world.signals.hungUp = world.requests.size() == 1; };
        world.rereads = {wrong};
        world.Run({"--watch", "--timeout", "3"});
        ASSERT_EQ(world.requests.size(), 2U);
        EXPECT_EQ(world.requests[1].timeout, seconds(3));
        EXPECT_THAT(world.terminal.words, HasSubstr("goes on with the options that it had"));
        EXPECT_THAT(world.service.told, testing::Contains("reloading"));
    }
}
