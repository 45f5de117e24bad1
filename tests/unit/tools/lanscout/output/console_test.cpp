#include "tools/lanscout/output/console.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <optional>

#include "tests/unit/support/fakeworld.h"

using namespace Lanscout;
using testing::HasSubstr;
using testing::Not;

namespace {

// A console whose standard output is a terminal, unless told otherwise.
struct Screen {
    Screen() { terminal.outputIsTerminal = true; }

    Console& Get() {
        if (!console) {
            console.emplace(terminal, settings, environment);
        }
        return *console;
    }
    std::string Drawn(const std::vector<std::string>& lines) {
        terminal.output.clear();
        Get().Draw(lines);
        return terminal.output;
    }

    FakeTerminal terminal;
    OutputSettings settings;
    Environment environment;
    std::optional<Console> console;
};

}  // namespace

TEST(Console, BlockIsDrawnOverTheFormerOneLineByLine) {
    Screen screen;
    EXPECT_EQ(screen.Drawn({"one", "two"}), "one\x1b[K\ntwo\x1b[K\n");
    EXPECT_EQ(screen.Drawn({"ONE", "two"}), "\x1b[2A\rONE\x1b[K\ntwo\x1b[K\n");
    EXPECT_EQ(screen.Drawn({"ONE", "two"}), "") << "nothing has changed";
}

TEST(Console, ShorterBlockClearsWhatIsLeft) {
    Screen screen;
    screen.Drawn({"a", "b", "c"});
    EXPECT_EQ(screen.Drawn({"a"}), "\x1b[3A\ra\x1b[K\n\x1b[2K\n\x1b[2K\n\x1b[2A");
    EXPECT_EQ(screen.Drawn({"x"}), "\x1b[1A\rx\x1b[K\n");
}

TEST(Console, ResultStandsWhereTheBlockWas) {
    Screen screen;
    screen.Drawn({"a", "b"});
    screen.terminal.output.clear();
    screen.Get().Output("result\n");
    EXPECT_EQ(screen.terminal.output, "\x1b[2A\r\x1b[2K\n\x1b[2K\n\x1b[2Aresult\n");
    screen.terminal.output.clear();
    screen.Get().Say("words");
    EXPECT_EQ(screen.terminal.output, "") << "erased once";
    EXPECT_EQ(screen.terminal.words, "words\n");
}

TEST(Console, LinesThatANarrowerTerminalHasBrokenAreErasedToo) {
    for (const auto& [width, rows] :
         std::vector<std::pair<int, int>>{{80, 1}, {40, 2}, {39, 3}, {20, 4}, {79, 2}}) {
        Screen screen;
        screen.terminal.size = {200, 50};
        screen.Drawn({std::string(80, 'x')});
        screen.terminal.size.columns = width;
        screen.terminal.output.clear();
        screen.Get().Erase();
        EXPECT_EQ(screen.terminal.output.substr(0, 5), "\x1b[" + std::to_string(rows) + "A\r")
            << width;
    }
}

TEST(Console, ColoursAndWideLettersCountAsTheyAreSeen) {
    Screen screen;
    screen.terminal.size = {100, 50};
    screen.Drawn({"\x1b[32m" + std::string(40, 'x') + "\x1b[0m"});
    screen.terminal.size.columns = 40;
    screen.terminal.output.clear();
    screen.Get().Erase();
    EXPECT_EQ(screen.terminal.output.substr(0, 5), "\x1b[1A\r");
    screen.terminal.size.columns = 100;
    screen.Drawn({"入口入口入口入口入口入口"});  // 24 columns
    screen.terminal.size.columns = 12;
    screen.terminal.output.clear();
    screen.Get().Erase();
    EXPECT_EQ(screen.terminal.output.substr(0, 5), "\x1b[2A\r");
}

TEST(Console, NeverErasesMoreThanTheScreenHas) {
    Screen screen;
    screen.terminal.size = {80, 5};
    screen.Drawn({"1", "2", "3", "4", "5", "6", "7"});
    screen.terminal.output.clear();
    screen.Get().Erase();
    EXPECT_EQ(screen.terminal.output.substr(0, 5), "\x1b[4A\r");
}

TEST(Console, OtherWidthDrawsAnew) {
    Screen screen;
    screen.Drawn({"a"});
    screen.terminal.size.columns = 60;
    EXPECT_EQ(screen.Drawn({"a"}),
              "\x1b[1A\r\x1b[2K\n\x1b[1A"
              "a\x1b[K\n");
}

TEST(Console, ForgottenBlockStays) {
    Screen screen;
    screen.Drawn({"a"});
    screen.Get().Forget();
    EXPECT_EQ(screen.Drawn({"a"}), "a\x1b[K\n");
}

TEST(Console, RoomIsOneColumnAndOneLineLess) {
    Screen screen;
    screen.terminal.size = {80, 24};
    EXPECT_EQ(screen.Get().DrawWidth(), 79);
    EXPECT_EQ(screen.Get().DrawHeight(), 23);
    EXPECT_EQ(screen.Get().OutputWidth(), 80);
}

TEST(Console, WithoutATerminalThereIsNoWidthAndNothingIsDrawn) {
    Screen screen;
    screen.terminal.outputIsTerminal = false;
    EXPECT_FALSE(screen.Get().CanDraw());
    EXPECT_EQ(screen.Get().OutputWidth(), 0);
    EXPECT_EQ(screen.Drawn({"a"}), "");
}

TEST(Console, BlockOfOtherFormatsIsDrawnOnStandardError) {
    Screen screen;
    screen.terminal.errorIsTerminal = true;
    screen.settings.format = "json";
    EXPECT_EQ(screen.Drawn({"a"}), "");
    EXPECT_EQ(screen.terminal.words, "a\x1b[K\n");
}

TEST(Console, NothingIsDrawnWhereItIsNotWantedOrCannotBe) {
    Screen dumb;
    dumb.environment.dumb = true;
    EXPECT_FALSE(dumb.Get().CanDraw());
    Screen unwanted;
    unwanted.settings.progress = false;
    EXPECT_FALSE(unwanted.Get().CanDraw());
}

TEST(Console, ColourIsForTerminalsUnlessItIsAskedFor) {
    const auto hasColour = [](bool terminal, When when, Environment environment) {
        Screen screen;
        screen.terminal.outputIsTerminal = terminal;
        screen.settings.colour = when;
        screen.environment = environment;
        return screen.Get().HasColour();
    };
    const Environment dumb{true, false, Charset::Utf8};
    const Environment noColour{false, true, Charset::Utf8};
    EXPECT_TRUE(hasColour(true, When::Auto, {}));
    EXPECT_FALSE(hasColour(false, When::Auto, {}));
    EXPECT_FALSE(hasColour(true, When::Auto, dumb));
    EXPECT_FALSE(hasColour(true, When::Auto, noColour));
    EXPECT_FALSE(hasColour(true, When::Never, {}));
    EXPECT_TRUE(hasColour(false, When::Always, noColour));
}

TEST(Console, AsciiTerminalGetsAsciiAndSequencesStay) {
    Screen screen;
    screen.environment.charset = Charset::Ascii;
    screen.terminal.errorIsTerminal = true;
    screen.Get().Output("\x1b[1mT\u00fcr\x1b[0m\n");
    EXPECT_EQ(screen.terminal.output, "\x1b[1mT\\u{fc}r\x1b[0m\n");
    screen.Get().Say("\u009b and \xff");
    EXPECT_EQ(screen.terminal.words, "\\u{9b} and \\xff\n");
    EXPECT_EQ(screen.Drawn({"入口"}), "\\u{5165}\\u{53e3}\x1b[K\n");
}

TEST(Console, FilesGetTheTextsAsTheyAre) {
    Screen screen;
    screen.environment.charset = Charset::Ascii;
    screen.terminal.outputIsTerminal = false;
    screen.Get().Output("T\u00fcr\n");
    EXPECT_EQ(screen.terminal.output, "T\u00fcr\n");
}

TEST(Console, FirstErrorOfTheResultIsKept) {
    Screen screen;
    screen.terminal.outputError = EPIPE;
    EXPECT_FALSE(screen.Get().Output("a"));
    screen.terminal.outputError = 0;
    EXPECT_FALSE(screen.Get().Output("b")) << "half a result is none";
    EXPECT_EQ(screen.Get().OutputError(), EPIPE);
    EXPECT_EQ(screen.terminal.output, "");
}
