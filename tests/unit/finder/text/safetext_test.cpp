#include "finder/text/safetext.h"

#include <gtest/gtest.h>

#include <string>

using namespace Lanscout;

TEST(SafeText, InvalidBytesBecomeReplacementCharacters) {
    EXPECT_EQ(ToValidUtf8("a\xFF"
                          "b\xC3"),
              "a\uFFFDb\uFFFD");
}

TEST(SafeText, SurrogatesAndOverlongFormsAreInvalid) {
    const std::string text = ToValidUtf8("\xED\xA0\x80|\xC0\xAF");
    EXPECT_EQ(text.find('\xED'), std::string::npos);
    EXPECT_EQ(text.find('\xC0'), std::string::npos);
    EXPECT_NE(text.find('|'), std::string::npos);
}

TEST(SafeText, KeptTextLosesOuterWhiteSpace) {
    EXPECT_EQ(ToKeptText(" \r\n\tIPC 100\n "), "IPC 100");
}

TEST(SafeText, KeptTextIsCutBetweenCharacters) {
    std::string text(kLongestKeptBytes - 1, 'a');
    text += "ü";
    EXPECT_EQ(ToKeptText(text), std::string(kLongestKeptBytes - 1, 'a'));
    EXPECT_EQ(ToKeptText(std::string(kLongestKeptBytes, 'a')).size(), kLongestKeptBytes);
}

TEST(SafeText, EscapeSequenceIsSpelledOut) {
    EXPECT_EQ(ForDisplay("\x1b]0;title\x07"), "\\x1b]0;title\\x07");
}

TEST(SafeText, C1ControlIsSpelledOut) {
    EXPECT_EQ(ForDisplay("\u009b31m"), "\\u{9b}31m");
}

TEST(SafeText, DirectionOverrideIsSpelledOut) {
    EXPECT_EQ(ForDisplay("a\u202egnp.exe\u2066"), "a\\u{202e}gnp.exe\\u{2066}");
}

TEST(SafeText, LineBreaksAndTabsAreSpelledOut) {
    EXPECT_EQ(ForDisplay("a\nb\tc\rd\u2028"), "a\\x0ab\\x09c\\x0dd\\u{2028}");
}

TEST(SafeText, BackslashIsDoubledSoThatEscapesCannotBeFeigned) {
    EXPECT_EQ(ForDisplay("\\x1b"), "\\\\x1b");
}

TEST(SafeText, InvalidByteIsShownByItsValue) {
    EXPECT_EQ(ForDisplay("\xFFz"), "\\xffz");
}

TEST(SafeText, LettersOfAllScriptsStay) {
    EXPECT_EQ(ForDisplay("Türkamera 入口"), "Türkamera 入口");
}

TEST(SafeText, AsciiTerminalGetsAscii) {
    EXPECT_EQ(ForDisplay("Tür", Charset::Ascii), "T\\u{fc}r");
}

TEST(SafeText, CharactersThatLookLikeNothingAreSpelledOut) {
    EXPECT_EQ(ForDisplay("a\u3164b\u2800c\u115F\uFFA0\u034F\u17B4"),
              "a\\u{3164}b\\u{2800}c\\u{115f}\\u{ffa0}\\u{34f}\\u{17b4}");
}

TEST(SafeText, TextOfSpacesAloneIsSpelledOut) {
    EXPECT_EQ(ForDisplay("\u00A0\u3000 \u2003"), "\\u{a0}\\u{3000} \\u{2003}");
    EXPECT_EQ(ForDisplay("n\u00B0\u00A01"), "n\u00B0\u00A01") << "a text with letters keeps them";
    EXPECT_EQ(ForDisplay(" "), " ");
    EXPECT_EQ(ForDisplay(""), "");
}

TEST(SafeText, MarksPileUpNoHigherThanFour) {
    std::string piled = "e";
    std::string shown = "e";
    for (int i = 0; i < 6; ++i) {
        piled += "\u0301";
        shown += i < 4 ? "\u0301" : "\\u{301}";
    }
    EXPECT_EQ(ForDisplay(piled), shown);
    EXPECT_EQ(ForDisplay("a\u0301\u0301\u0301b\u0301\u0301"), "a\u0301\u0301\u0301b\u0301\u0301")
        << "each letter has its own";
    EXPECT_EQ(ForDisplay("Tiếng Việt, ภาษาไทย, हिन्दी"), "Tiếng Việt, ภาษาไทย, हिन्दी");
}

TEST(SafeText, WideCharactersCountTwiceAndCombiningOnesNotAtAll) {
    EXPECT_EQ(DisplayWidth("入口"), 4);
    EXPECT_EQ(DisplayWidth("u\u0308"), 1);
}

TEST(SafeText, ShortTextIsPadded) {
    EXPECT_EQ(FitWidth("入", 4), "入  ");
}

TEST(SafeText, WideCharacterIsNotTorn) {
    EXPECT_EQ(FitWidth("入口門", 4), "入… ");
    EXPECT_EQ(FitWidth("入口門", 5), "入口…");
}

TEST(SafeText, AsciiEllipsisOnAsciiTerminal) {
    EXPECT_EQ(FitWidth("hardware", 5, Charset::Ascii), "hard~");
}

TEST(SafeText, NoWidthGivesNoText) {
    EXPECT_EQ(FitWidth("hardware", 0), "");
}

TEST(SafeText, PercentEncodingIsUndone) {
    EXPECT_EQ(DecodePercent("IPC%2F4K%2b"), "IPC/4K+");
}

TEST(SafeText, WhatIsNoPercentEncodingStays) {
    EXPECT_EQ(DecodePercent("100%"), "100%");
    EXPECT_EQ(DecodePercent("%4"), "%4");
    EXPECT_EQ(DecodePercent("%zz%-1"), "%zz%-1");
}
