// What a ProbeMatches reply yields: port and hardware, and every way in which it yields nothing.
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/unit/support/expectedlog.h"
#include "tests/unit/support/fakexml.h"
#include "tests/unit/support/opensearch.h"
#include "tests/unit/support/recordinghost.h"
#include "tests/unit/support/samplereply.h"
#include "utils/xmlguard.h"

namespace {

using RecordingHost::IsLine;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr bool kBounded = LANSCOUT_BOUNDED != 0;

constexpr const char* kXAddrsQuery =
    "//*[local-name()='ProbeMatches']//*[local-name()='ProbeMatch']//*[local-name()='XAddrs']";
constexpr const char* kScopesQuery =
    "//*[local-name()='ProbeMatches']//*[local-name()='ProbeMatch']//*[local-name()='Scopes']";
static_assert(std::char_traits<char>::length(kXAddrsQuery) == 88);
static_assert(std::char_traits<char>::length(kScopesQuery) == 88);

const auto kEmptyNotice = IsLine(3, "GetXmlNodeSet", "Notice: xmlXPathObj is empty.\n");
const auto kNoXAddrs = IsLine(4, "ParseProbeMatchMessage", "Failed to get XAddrs node set.\n");
const auto kNoScopes = IsLine(4, "ParseProbeMatchMessage", "Failed to get scopes node set.\n");

std::string InMatch(const std::string& inner) {
    return "<ProbeMatches><ProbeMatch>" + inner + "</ProbeMatch></ProbeMatches>";
}

class ProbeMatch : public testing::Test {
protected:
    ProbeMatch() : m_search((RecordingHost::Reset(), "192.168.1.2"), 5) {
        FakeXml::Reset();
        HardenXmlOnThisThread();
        RecordingHost::SetLogLevel(4);
    }

    // As "port|hardware", from the presets "80" and "none".
    std::string Parse(const std::string& reply) {
        std::string port = "80";
        std::string hardware = "none";
        m_search.ParseProbeMatchMessage("192.168.1.20", reply, port, hardware);
        return port + "|" + hardware;
    }

    std::string PortOf(const std::string& xaddrs) {
        std::string port = "80";
        m_search.ParsePortFromXAddrs(xaddrs, port);
        return port;
    }

    std::string HardwareOf(const std::string& scopes) {
        std::string hardware = "none";
        m_search.ParseHardwareFromScopes(scopes, hardware);
        return hardware;
    }

    static void ExpectParseFailure() {
        EXPECT_THAT(RecordingHost::LogLines(),
                    ElementsAre(IsLine(4, "ParseProbeMatchMessage",
                                       "Parse Probe Match Message to XML Failed: %s\n",
                                       "Parse Probe Match Message to XML Failed: 192.168.1.20\n")));
    }

    OpenSearch m_search;
};

using PortText = ProbeMatch;

TEST_F(PortText, IsWhatStandsBetweenFirstColonAndFirstSlash) {
    const std::map<std::string, std::string> cases{
        {"http://192.168.1.20:8080/path", "8080"},
        {"http://192.168.1.20/path", "80"},
        {"http://192.168.1.20:8080/path http://10.0.0.9:9000/path", "8080"},
        {"http://192.168.1.20/path http://10.0.0.9:9000/path", "80"},
        {"http://[fe80::2]:8080/path", ":2]:8080"},
        {"https://192.168.1.20:443/path", ""},
        {"http://192.168.1.20:8080", "80"},
        {"", "80"},
        {"http://", "80"},
        {"192.168.1.20:8080/path", "8080"},
        {"http://host:abc/", "abc"},
        {"http://host:8080x/", "8080x"},
        {"http://host:/", ""},
        {":/", ""},
        {"/:", "80"},
        {"https://a/ http://192.168.1.20:81/path", "81"},
        {"\n\thttp://192.168.1.20:82/path\n", "82"},
        {"HTTP://192.168.1.20:83/path", ""},  // the marker is lower case
        {"http://192.168.1.20:84/ a:85/", "84"},
    };
    for (const auto& [xaddrs, port] : cases) {
        EXPECT_EQ(PortOf(xaddrs), port) << xaddrs;
    }
}

using HardwareText = ProbeMatch;

TEST_F(HardwareText, IsTheFirstHardwareScopesValueUpToASpace) {
    const std::string prefix = "onvif://www.onvif.org/hardware/";
    const std::map<std::string, std::string> cases{
        {"scope:one " + prefix + "IPC-100 scope:two", "IPC-100"},
        {"scope:one " + prefix + "IPC-100", "IPC-100"},
        {prefix + " scope:two", ""},
        {prefix, ""},
        {"scope:one scope:two", "none"},
        {"", "none"},
        {prefix + "A " + prefix + "B", "A"},
        {prefix + "A\t" + prefix + "B c", "A\t" + prefix + "B"},
        {prefix + "A\nscope:two", "A\nscope:two"},
        {prefix + "IPC%20100 x", "IPC 100"},  // by the host's DecodingSpaces
        {"onvif://www.onvif.org/HARDWARE/A", "none"},
        {"x" + prefix + "A", "A"},
    };
    for (const auto& [scopes, hardware] : cases) {
        EXPECT_EQ(HardwareOf(scopes), hardware) << scopes;
    }
}

TEST_F(ProbeMatch, UsualReplyYieldsPortAndHardware) {
    EXPECT_EQ(Parse(SampleReply("http://192.168.1.20:8080/onvif/device_service",
                                "onvif://www.onvif.org/type/ptz "
                                "onvif://www.onvif.org/hardware/IPC-100 "
                                "onvif://www.onvif.org/name/Door")),
              "8080|IPC-100");
    EXPECT_THAT(RecordingHost::LogLines(), IsEmpty());
}

TEST_F(ProbeMatch, ElementsAreFoundByLocalNameAtAnyDepth) {
    EXPECT_EQ(Parse("<a:x xmlns:a='urn:1'><y><ProbeMatches xmlns='urn:2'><z><a:ProbeMatch><q>"
                    "<XAddrs>http://h:81/</XAddrs></q><a:Scopes>"
                    "onvif://www.onvif.org/hardware/H</a:Scopes></a:ProbeMatch></z>"
                    "</ProbeMatches></y></a:x>"),
              "81|H");
}

TEST_F(ProbeMatch, TextOfDescendantsIsJoined) {
    EXPECT_EQ(Parse(InMatch("<XAddrs>http://h<b>:8</b><!-- -->1<![CDATA[/]]></XAddrs>"
                            "<Scopes>onvif://www.onvif.org/hardware/<i>A&amp;&#66;</i></Scopes>")),
              "81|A&B");
}

TEST_F(ProbeMatch, OnlyFirstXAddrsAndFirstScopesInDocumentOrderCount) {
    EXPECT_EQ(Parse("<ProbeMatches>"
                    "<ProbeMatch><XAddrs>http://h:81/</XAddrs></ProbeMatch>"
                    "<ProbeMatch><XAddrs>http://h:82/</XAddrs>"
                    "<Scopes>onvif://www.onvif.org/hardware/B</Scopes></ProbeMatch>"
                    "<ProbeMatch><Scopes>onvif://www.onvif.org/hardware/C</Scopes></ProbeMatch>"
                    "</ProbeMatches>"),
              "81|B");
}

TEST_F(ProbeMatch, ElementsOutsideTheirPlaceAreNotTaken) {
    EXPECT_EQ(Parse("<ProbeMatch><ProbeMatches><XAddrs>http://h:81/</XAddrs>"
                    "<Scopes>onvif://www.onvif.org/hardware/B</Scopes></ProbeMatches>"
                    "</ProbeMatch>"),
              "80|none");
}

TEST_F(ProbeMatch, NotXmlIsLoggedWithTheSender) {
    EXPECT_EQ(Parse("this is no XML"), "80|none");
    ExpectParseFailure();
}

TEST_F(ProbeMatch, RepliesThatAreNotWellFormedSetNothing) {
    const std::string good = SampleReply("http://h:81/", "onvif://www.onvif.org/hardware/A");
    for (const std::string& bad :
         {std::string(), std::string("\n"), std::string("<"), std::string("<a>"), good + "<b/>",
          good.substr(0, good.size() - 5), " " + good, std::string("<?xml version='1.0'?>"),
          std::string("\xFF\xFE\xFD"), std::string("<a>\x01</a>"),
          std::string("<?xml version='1.0' encoding='no-such-encoding'?><a/>")}) {
        RecordingHost::Reset();
        RecordingHost::SetLogLevel(4);
        EXPECT_EQ(Parse(bad), "80|none") << bad;
        ExpectParseFailure();
    }
}

TEST_F(ProbeMatch, RefusedParseIsLoggedWithTheSender) {
    FakeXml::Current().bRefuseParse = true;
    EXPECT_EQ(Parse(SampleReply("http://h:81/", "")), "80|none");
    ExpectParseFailure();
}

TEST_F(ProbeMatch, DeclaredEntityCountsAsNoDocument) {
    EXPECT_EQ(Parse("<!DOCTYPE a [<!ENTITY e 'x'>]>" + InMatch("<XAddrs>http://h:81/</XAddrs>")),
              "80|none");
    ExpectParseFailure();
    EXPECT_EQ(FakeXml::Current().nDocsParsed, 0);  // not even tried
}

TEST_F(ProbeMatch, HarmlessDoctypeChangesNothing) {
    EXPECT_EQ(Parse("<!DOCTYPE a [<!ELEMENT a ANY>]>" + InMatch("<XAddrs>http://h:81/</XAddrs>")),
              "81|none");
}

TEST_F(ProbeMatch, NoGuardContextIsSpentOnUsualReplies) {
    Parse(SampleReply("http://h:81/", ""));
    EXPECT_EQ(FakeXml::Current().nParserContexts, 0);
}

TEST_F(ProbeMatch, MissingXAddrsIsLoggedInTwoLinesAndScopesStillRead) {
    EXPECT_EQ(Parse(InMatch("<Scopes>onvif://www.onvif.org/hardware/A</Scopes>")), "80|A");
    EXPECT_THAT(RecordingHost::LogLines(), ElementsAre(kEmptyNotice, kNoXAddrs));
}

TEST_F(ProbeMatch, MissingScopesIsLoggedInTwoLines) {
    EXPECT_EQ(Parse(InMatch("<XAddrs>http://h:81/</XAddrs>")), "81|none");
    EXPECT_THAT(RecordingHost::LogLines(), ElementsAre(kEmptyNotice, kNoScopes));
}

TEST_F(ProbeMatch, BothMissingIsLoggedInFourLines) {
    EXPECT_EQ(Parse("<a/>"), "80|none");
    EXPECT_THAT(RecordingHost::LogLines(),
                ElementsAre(kEmptyNotice, kNoXAddrs, kEmptyNotice, kNoScopes));
}

TEST_F(ProbeMatch, WithoutConfigurationDetailedLinesStayQuiet) {
    g_pDbgLogCfg = nullptr;
    Parse("no XML");
    EXPECT_THAT(RecordingHost::LogLines(), IsEmpty());
    Parse("<a/>");
    EXPECT_THAT(RecordingHost::LogLines(), ElementsAre(kEmptyNotice, kEmptyNotice));
}

TEST_F(ProbeMatch, EmptyElementsSetNothing) {
    EXPECT_EQ(Parse(SampleReply("", "")), "80|none");
    EXPECT_THAT(RecordingHost::LogLines(), IsEmpty());
}

TEST_F(ProbeMatch, UnreadableContentLeavesBothPresets) {
    FakeXml::Current().bRefuseContent = true;
    EXPECT_EQ(Parse(SampleReply("http://h:81/", "onvif://www.onvif.org/hardware/A")), "80|none");
    const auto failed = IsLine(3, "GetNodeContent", "Get node content failed.\n");
    EXPECT_THAT(RecordingHost::LogLines(), ElementsAre(failed, failed));
}

using NodeSet = ProbeMatch;

struct FreeDoc {
    void operator()(xmlDoc* doc) const { xmlFreeDoc(doc); }
};
using Doc = std::unique_ptr<xmlDoc, FreeDoc>;

Doc ParseDoc(const std::string& text) {
    return Doc(xmlParseMemory(text.data(), static_cast<int>(text.size())));
}

TEST_F(NodeSet, MatchBelongsToTheCaller) {
    const Doc doc = ParseDoc("<a><b>text</b><b/></a>");
    xmlXPathObject* result = nullptr;
    ASSERT_EQ(m_search.GetXmlNodeSet(doc.get(), "//b", result), 0);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result->nodesetval->nodeNr, 2);
    std::string content = "before";
    EXPECT_EQ(m_search.GetNodeContent(result->nodesetval->nodeTab[0], content), 0);
    EXPECT_EQ(content, "text");
    EXPECT_EQ(m_search.GetNodeContent(result->nodesetval->nodeTab[1], content), 0);
    EXPECT_EQ(content, "");
    EXPECT_EQ(FakeXml::Current().nContexts, 1);
    EXPECT_EQ(FakeXml::Current().nContextsFreed, 1);
    xmlXPathFreeObject(result);
    EXPECT_THAT(RecordingHost::LogLines(), IsEmpty());
}

TEST_F(NodeSet, RefusedContextIsLogged) {
    const Doc doc = ParseDoc("<a/>");
    FakeXml::Current().bRefuseContext = true;
    xmlXPathObject* result = nullptr;
    EXPECT_EQ(m_search.GetXmlNodeSet(doc.get(), "//a", result), -1);
    EXPECT_EQ(result, nullptr);
    EXPECT_THAT(
        RecordingHost::LogLines(),
        ElementsAre(IsLine(3, "GetXmlNodeSet", "Error: unable to create new XPath context.\n")));
}

TEST_F(NodeSet, MissingRootIsLoggedAndContextKept) {
    const Doc doc = ParseDoc("<a/>");
    FakeXml::Current().bRefuseRoot = true;
    xmlXPathObject* result = nullptr;
    EXPECT_EQ(m_search.GetXmlNodeSet(doc.get(), "//a", result), -1);
    EXPECT_THAT(
        RecordingHost::LogLines(),
        ElementsAre(IsLine(3, "GetXmlNodeSet", "Error: unable to get xml root element.\n")));
    EXPECT_EQ(FakeXml::Current().nContexts, 1);
    EXPECT_EQ(FakeXml::Current().nContextsFreed, 0);
    xmlXPathFreeContext(FakeXml::Current().pLastContext);  // no sender can bring this about
}

TEST_F(NodeSet, EvaluationThatYieldsNothingIsLoggedAndContextKept) {
    const Doc doc = ParseDoc("<a/>");
    xmlXPathObject* result = nullptr;
    EXPECT_EQ(m_search.GetXmlNodeSet(doc.get(), "//a[", result), -1);
    EXPECT_EQ(result, nullptr);
    EXPECT_THAT(
        RecordingHost::LogLines(),
        ElementsAre(IsLine(3, "GetXmlNodeSet", "Error: unable to evaluate XPath expression %s.\n",
                           "Error: unable to evaluate XPath expression //a[.\n")));
    EXPECT_EQ(FakeXml::Current().nContexts, 1);
    EXPECT_EQ(FakeXml::Current().nContextsFreed, kBounded ? 1 : 0);
}

TEST_F(NodeSet, FailedEvaluationReplacesAFormerResult) {
    const Doc doc = ParseDoc("<a/>");
    FakeXml::Current().bRefuseEvaluation = true;
    xmlXPathObject former{};
    xmlXPathObject* result = &former;
    EXPECT_EQ(m_search.GetXmlNodeSet(doc.get(), "//a", result), -1);
    EXPECT_EQ(result, nullptr);
}

TEST_F(NodeSet, EmptySetIsLoggedFreedAndLeavesTheFormerPointer) {
    const Doc doc = ParseDoc("<a/>");
    xmlXPathObject* result = nullptr;
    EXPECT_EQ(m_search.GetXmlNodeSet(doc.get(), "//b", result), -1);
    EXPECT_NE(result, nullptr);  // freed, not to be used
    EXPECT_THAT(RecordingHost::LogLines(), ElementsAre(kEmptyNotice));
    EXPECT_EQ(FakeXml::Current().nResultsFreed, 1);
    EXPECT_EQ(FakeXml::Current().nContextsFreed, 1);
}

TEST_F(NodeSet, ResultWithoutNodeSetCountsAsEmpty) {
    const Doc doc = ParseDoc("<a/>");
    xmlXPathObject* result = nullptr;
    EXPECT_EQ(m_search.GetXmlNodeSet(doc.get(), "1 + 1", result), -1);
    EXPECT_THAT(RecordingHost::LogLines(), ElementsAre(kEmptyNotice));
    EXPECT_EQ(FakeXml::Current().nResultsFreed, 1);
}

TEST_F(NodeSet, ResultWithoutNodeTableCountsAsEmpty) {
    const Doc doc = ParseDoc("<a/>");
    FakeXml::Current().bLoseNodeTable = true;
    xmlXPathObject* result = nullptr;
    EXPECT_EQ(m_search.GetXmlNodeSet(doc.get(), "//a", result), -1);
    EXPECT_THAT(RecordingHost::LogLines(), ElementsAre(kEmptyNotice));
}

TEST_F(NodeSet, NamespacesAreRegisteredFromTheRootsOwnOn) {
    // "a" stands before the root's own and stays out; "c" stands behind it.
    const Doc doc =
        ParseDoc("<r:x xmlns:a='urn:a' xmlns:r='urn:r' xmlns:c='urn:c'><c:y/><a:y/></r:x>");
    xmlXPathObject* result = nullptr;
    ASSERT_EQ(m_search.GetXmlNodeSet(doc.get(), "//c:y", result), 0);
    xmlXPathFreeObject(result);
    ASSERT_EQ(m_search.GetXmlNodeSet(doc.get(), "/r:x", result), 0);
    xmlXPathFreeObject(result);
    EXPECT_THAT(RecordingHost::LogLines(), IsEmpty());
    EXPECT_EQ(m_search.GetXmlNodeSet(doc.get(), "//a:y", result), -1);
}

TEST_F(NodeSet, RootWithoutNamespaceRegistersNothing) {
    FakeXml::Current().bRefuseNamespaces = true;
    const Doc doc = ParseDoc("<x xmlns:a='urn:a'/>");
    xmlXPathObject* result = nullptr;
    ASSERT_EQ(m_search.GetXmlNodeSet(doc.get(), "/x", result), 0);
    xmlXPathFreeObject(result);
    EXPECT_THAT(RecordingHost::LogLines(), IsEmpty());
}

TEST_F(NodeSet, NamespaceWithoutPrefixIsLoggedWithEmptyTextAndTheWalkGoesOn) {
    const Doc doc = ParseDoc("<x xmlns='urn:x' xmlns:c='urn:c'><c:y/></x>");
    xmlXPathObject* result = nullptr;
    ASSERT_EQ(m_search.GetXmlNodeSet(doc.get(), "//c:y", result), 0);
    xmlXPathFreeObject(result);
    EXPECT_THAT(
        RecordingHost::LogLines(),
        ElementsAre(IsLine(4, "GetXmlNodeSet", "Unable to register xml namespace [%s, %s].\n",
                           "Unable to register xml namespace [, urn:x].\n")));
}

TEST_F(NodeSet, EveryRefusedNamespaceIsLogged) {
    FakeXml::Current().bRefuseNamespaces = true;
    const Doc doc = ParseDoc("<a:x xmlns:a='urn:a' xmlns:b='urn:b'/>");
    xmlXPathObject* result = nullptr;
    ASSERT_EQ(m_search.GetXmlNodeSet(doc.get(), "//*", result), 0);
    xmlXPathFreeObject(result);
    EXPECT_THAT(RecordingHost::LogMessages(),
                ElementsAre("Unable to register xml namespace [a, urn:a].\n",
                            "Unable to register xml namespace [b, urn:b].\n"));
}

using NodeContent = ProbeMatch;

TEST_F(NodeContent, NullNodeLeavesTheTextAsItWas) {
    std::string content = "as it was";
    EXPECT_EQ(m_search.GetNodeContent(nullptr, content), -1);
    EXPECT_EQ(content, "as it was");
    EXPECT_THAT(RecordingHost::LogLines(),
                ElementsAre(IsLine(3, "GetNodeContent", "NULL xml node.\n")));
}

TEST_F(NodeContent, RefusedTextLeavesItEmpty) {
    const Doc doc = ParseDoc("<a>text</a>");
    FakeXml::Current().bRefuseContent = true;
    std::string content = "as it was";
    EXPECT_EQ(m_search.GetNodeContent(xmlDocGetRootElement(doc.get()), content), -1);
    EXPECT_EQ(content, "");
    EXPECT_THAT(RecordingHost::LogLines(),
                ElementsAre(IsLine(3, "GetNodeContent", "Get node content failed.\n")));
}

using Lifetime = ProbeMatch;

// The trees and the results of successful queries: kept by the default build, released by the
// bounded one. Contexts of evaluated queries are released by both.
TEST_F(Lifetime, TreeAndResultsAreKeptOrReleasedAsTheBuildSays) {
    Parse(SampleReply("http://h:81/", "onvif://www.onvif.org/hardware/A"));
    const FakeXml::State& xml = FakeXml::Current();
    EXPECT_EQ(xml.nDocsParsed, 1);
    EXPECT_EQ(xml.nDocsFreed, kBounded ? 1 : 0);
    EXPECT_EQ(xml.nResultsFreed, kBounded ? 2 : 0);
    EXPECT_EQ(xml.nContexts, 2);
    EXPECT_EQ(xml.nContextsFreed, 2);
}

TEST_F(Lifetime, TreeWithoutMatchesIsKeptOrReleasedAlike) {
    Parse("<a/>");
    EXPECT_EQ(FakeXml::Current().nDocsFreed, kBounded ? 1 : 0);
    EXPECT_EQ(FakeXml::Current().nResultsFreed, 2);  // empty results, in both builds
}

// Deeply nested matches would take libxml2 tens of milliseconds.
TEST_F(ProbeMatch, NestedMatchesCountAsAQueryThatYieldsNothing) {
    std::string reply;
    std::string end;
    for (int i = 0; i < 40; ++i) {
        reply += "<ProbeMatches>";
        end += "</ProbeMatches>";
    }
    while (reply.size() + end.size() < 4000) {
        reply += "<a/>x";
    }
    EXPECT_EQ(Parse(reply + end), "80|none");
    EXPECT_THAT(
        RecordingHost::LogMessages(),
        ElementsAre(
            std::string("Error: unable to evaluate XPath expression ") + kXAddrsQuery + ".\n",
            "Failed to get XAddrs node set.\n",
            std::string("Error: unable to evaluate XPath expression ") + kScopesQuery + ".\n",
            "Failed to get scopes node set.\n"));
    EXPECT_EQ(FakeXml::Current().nContextsFreed, kBounded ? 2 : 0);
}

// Nesting as such is no reason; neither is size.
TEST_F(ProbeMatch, SmallRepliesWithNestedMatchesAreEvaluated) {
    EXPECT_EQ(Parse(InMatch(InMatch("<XAddrs><XAddrs>http://h:81/</XAddrs></XAddrs>"))), "81|none");
}

// The dearest replies of one datagram that nest nothing in its namesake.
TEST_F(ProbeMatch, FullDatagramsWithoutNestedMatchesAreEvaluated) {
    const std::string begin = "<ProbeMatches><ProbeMatch>";
    const std::string end = "<XAddrs>http://h:81/</XAddrs></ProbeMatch></ProbeMatches>";
    for (const std::string filler :
         {"<a/>x", "<a/>", "<a><b/></a>", "<?b?>", "<Scopes/>", "<!---->"}) {
        std::string reply = begin;
        while (reply.size() + filler.size() + end.size() <= 4096) {
            reply += filler;
        }
        EXPECT_EQ(Parse(reply + end), "81|none") << filler;
    }
}

}  // namespace
