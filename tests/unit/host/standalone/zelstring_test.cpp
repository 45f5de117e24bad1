#include "host/zelstring.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(DecodingSpacesTest, EncodedSpacesBecomeSpaces) {
    EXPECT_EQ(DecodingSpaces("IPC%20100%20Pro"), "IPC 100 Pro");
    EXPECT_EQ(DecodingSpaces("%20a%20"), " a ");
    EXPECT_EQ(DecodingSpaces("%20%20"), "  ");
}

TEST(DecodingSpacesTest, TextWithoutThemStays) {
    EXPECT_EQ(DecodingSpaces(""), "");
    EXPECT_EQ(DecodingSpaces("IPC-100"), "IPC-100");
    EXPECT_EQ(DecodingSpaces("real space\t\n"), "real space\t\n");
}

TEST(DecodingSpacesTest, PlusIsAPlus) {
    EXPECT_EQ(DecodingSpaces("PTZ+IR"), "PTZ+IR");
}

TEST(DecodingSpacesTest, OtherEscapesStay) {
    EXPECT_EQ(DecodingSpaces("%2F%41%0A%00%C3%BC%C2%A0"), "%2F%41%0A%00%C3%BC%C2%A0");
}

TEST(DecodingSpacesTest, EncodedPercentSignIsNotDecodedTwice) {
    EXPECT_EQ(DecodingSpaces("100%2520"), "100%2520");
    EXPECT_EQ(DecodingSpaces("%%2020"), "% 20");
}

TEST(DecodingSpacesTest, CutOffEscapeStays) {
    EXPECT_EQ(DecodingSpaces("a%"), "a%");
    EXPECT_EQ(DecodingSpaces("a%2"), "a%2");
    EXPECT_EQ(DecodingSpaces("a%2 0"), "a%2 0");
}

TEST(DecodingSpacesTest, ZeroByteStays) {
    const std::string text("a\0%20b", 6);
    EXPECT_EQ(DecodingSpaces(text), std::string("a\0 b", 4));
}

TEST(TrimTest, CharactersGoAtBothEndsOnly) {
    EXPECT_EQ(Trim("//a/b//", "/"), "a/b");
    EXPECT_EQ(Trim(" \tx y\t ", " \t"), "x y");
}

TEST(TrimTest, TextOfThoseCharactersAloneIsEmpty) {
    EXPECT_EQ(Trim("///", "/"), "");
    EXPECT_EQ(Trim("", "/"), "");
}

TEST(TrimTest, OtherTextStays) {
    EXPECT_EQ(Trim("abc", "/"), "abc");
    EXPECT_EQ(Trim(" abc ", ""), " abc ");
    EXPECT_EQ(Trim(" abc ", nullptr), " abc ");
}

TEST(TrimTest, ZeroByteIsNoneOfTheCharacters) {
    const std::string text("\0/a/\0", 5);
    EXPECT_EQ(Trim(text, "/"), text);
}

}  // namespace
