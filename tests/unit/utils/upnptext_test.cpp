// The two text services for derived classes: GetUpnpResultInfo and ParseUrl.
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "tests/unit/support/upnpfinder.h"

namespace {

std::string Info(const std::string& strXml, const std::string& strTag) {
    return UpnpFinder::GetUpnpResultInfo(strXml, strTag);
}

struct Url {
    int result;
    std::string strHost = "preset";
    int port = 7;
};

Url Parse(const std::string& strUrl) {
    Url url{};
    url.result = UpnpFinder::ParseUrl(strUrl, url.strHost, url.port);
    return url;
}

TEST(GetUpnpResultInfo, ReturnsTheTextOfAnElement) {
    EXPECT_EQ(Info("<device><modelName>M1</modelName></device>", "modelName"), "M1");
}

TEST(GetUpnpResultInfo, KeepsTheTextAsItStands) {
    EXPECT_EQ(Info("<a> <b>&amp;</b>\r\n\x80</a>", "a"), " <b>&amp;</b>\r\n\x80");
}

TEST(GetUpnpResultInfo, GivesNothingForAnAbsentElement) {
    EXPECT_EQ(Info("<a>1</a>", "b"), "");
    EXPECT_EQ(Info("", "a"), "");
}

TEST(GetUpnpResultInfo, GivesNothingWithoutAClosingTag) {
    EXPECT_EQ(Info("<a>1<a>", "a"), "");
    EXPECT_EQ(Info("<a>1</a", "a"), "");
}

TEST(GetUpnpResultInfo, GivesNothingWithoutAnOpeningTag) {
    EXPECT_EQ(Info("1</a>", "a"), "");
}

TEST(GetUpnpResultInfo, ElementWithAttributesIsNotFound) {
    EXPECT_EQ(Info("<a id=\"1\">1</a>", "a"), "");
    EXPECT_EQ(Info("<a >1</a>", "a"), "");
}

TEST(GetUpnpResultInfo, ElementWithAPrefixIsNotFound) {
    EXPECT_EQ(Info("<p:a>1</p:a>", "a"), "");
}

TEST(GetUpnpResultInfo, TagIsComparedWithItsCase) {
    EXPECT_EQ(Info("<A>1</A>", "a"), "");
}

TEST(GetUpnpResultInfo, FirstOccurrenceWins) {
    EXPECT_EQ(Info("<a>1</a><a>2</a>", "a"), "1");
}

TEST(GetUpnpResultInfo, ElementWithAttributesIsPassedOverForALaterPlainOne) {
    EXPECT_EQ(Info("<a x=\"\">1</a><a>2</a>", "a"), "2");
}

TEST(GetUpnpResultInfo, ClosingTagBeforeTheOpeningTagDoesNotCount) {
    EXPECT_EQ(Info("</a><a>1</a>", "a"), "1");
    EXPECT_EQ(Info("</a><a>1", "a"), "");
}

TEST(GetUpnpResultInfo, NestedElementOfTheSameNameEndsAtTheFirstClosingTag) {
    EXPECT_EQ(Info("<a>1<a>2</a></a>", "a"), "1<a>2");
}

TEST(GetUpnpResultInfo, EmptyElementIsEmpty) {
    EXPECT_EQ(Info("<a></a>", "a"), "");
}

TEST(GetUpnpResultInfo, ZeroBytesAreOrdinaryText) {
    using namespace std::string_literals;
    EXPECT_EQ(Info("\0<a>1\0002</a>"s, "a"), "1\0002"s);
}

TEST(GetUpnpResultInfo, EmptyTagFindsAnElementWithoutAName) {
    EXPECT_EQ(Info("<>1</>", ""), "1");
}

// The closing tag is looked for from the opening tag's position on, so it may begin inside of it.
// The length is then negative, which substr takes as "to the end".
TEST(GetUpnpResultInfo, ClosingTagInsideTheOpeningTagGivesTheRestOfTheDocument) {
    EXPECT_EQ(Info("<a></a></a>rest", "a></a"), "</a>rest");
}

TEST(ParseUrl, SplitsHostAndPort) {
    const Url url = Parse("http://10.0.0.5:8080/");
    EXPECT_EQ(url.result, 0);
    EXPECT_EQ(url.strHost, "10.0.0.5");
    EXPECT_EQ(url.port, 8080);
}

TEST(ParseUrl, PortIsEightyWhenNoneIsGiven) {
    const Url url = Parse("http://10.0.0.5");
    EXPECT_EQ(url.result, 0);
    EXPECT_EQ(url.strHost, "10.0.0.5");
    EXPECT_EQ(url.port, 80);
}

TEST(ParseUrl, HostKeepsThePathOfAUrlWithoutPort) {
    const Url url = Parse("http://10.0.0.5/a/b.xml");
    EXPECT_EQ(url.strHost, "10.0.0.5/a/b.xml");
    EXPECT_EQ(url.port, 80);
}

TEST(ParseUrl, PathBehindThePortIsDropped) {
    const Url url = Parse("http://10.0.0.5:8080/a/b.xml");
    EXPECT_EQ(url.strHost, "10.0.0.5");
    EXPECT_EQ(url.port, 8080);
}

TEST(ParseUrl, ColonInThePathIsTakenForThePorts) {
    const Url url = Parse("http://10.0.0.5/a:81");
    EXPECT_EQ(url.strHost, "10.0.0.5/a");
    EXPECT_EQ(url.port, 81);
}

TEST(ParseUrl, SlashesAtBothEndsAreTrimmed) {
    const Url url = Parse("http:////10.0.0.5///");
    EXPECT_EQ(url.strHost, "10.0.0.5");
    EXPECT_EQ(url.port, 80);
}

TEST(ParseUrl, UrlOfNothingButTheSchemeHasAnEmptyHost) {
    const Url url = Parse("http://");
    EXPECT_EQ(url.result, 0);
    EXPECT_EQ(url.strHost, "");
    EXPECT_EQ(url.port, 80);
}

TEST(ParseUrl, AnotherSchemeIsRefusedAndLeavesTheOutputs) {
    for (const char* text : {"https://10.0.0.5:1/", "HTTP://10.0.0.5:1/", "10.0.0.5:1",
                             " http://a:1", "http:/", "http:/a:1", ""}) {
        const Url url = Parse(text);
        EXPECT_EQ(url.result, -1) << text;
        EXPECT_EQ(url.strHost, "preset") << text;
        EXPECT_EQ(url.port, 7) << text;
    }
}

TEST(ParseUrl, PortIsReadUpToTheFirstNonDigit) {
    EXPECT_EQ(Parse("http://h:80x").port, 80);
    EXPECT_EQ(Parse("http://h: 81").port, 81);
    EXPECT_EQ(Parse("http://h:-1").port, -1);
}

TEST(ParseUrl, PortWithoutDigitsIsZero) {
    EXPECT_EQ(Parse("http://h:").port, 0);
    EXPECT_EQ(Parse("http://h:x").port, 0);
}

TEST(ParseUrl, PortIsCutToThirtyTwoBits) {
    EXPECT_EQ(Parse("http://h:4294967376").port, 80);
    EXPECT_EQ(Parse("http://h:2147483648").port, INT_MIN);
    EXPECT_EQ(Parse("http://h:99999999999999999999").port, -1);
}

}  // namespace
