#include "finder/source/reply.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using namespace Lanscout;
using testing::ElementsAre;

namespace {

constexpr char kTransmitter[] = "{http://www.onvif.org/ver10/network/wsdl}NetworkVideoTransmitter";

std::string Envelope(const std::string& body) {
    return R"(<e:Envelope xmlns:e="http://www.w3.org/2003/05/soap-envelope")"
           R"( xmlns:a="http://schemas.xmlsoap.org/ws/2004/08/addressing")"
           R"( xmlns:d="http://schemas.xmlsoap.org/ws/2005/04/discovery")"
           R"( xmlns:dn="http://www.onvif.org/ver10/network/wsdl")"
           R"( xmlns:tds="http://www.onvif.org/ver10/device/wsdl"><e:Header/><e:Body>)" +
           body + "</e:Body></e:Envelope>";
}

std::string Reply(const std::string& matches) {
    return Envelope("<d:ProbeMatches>" + matches + "</d:ProbeMatches>");
}

std::string Match(const std::string& inside) {
    return "<d:ProbeMatch>" + inside + "</d:ProbeMatch>";
}

std::string Camera() {
    return Match(
        "<a:EndpointReference><a:Address>urn:uuid:5f5a</a:Address></a:EndpointReference>"
        "<d:Types>dn:NetworkVideoTransmitter tds:Device</d:Types>"
        "<d:Scopes>onvif://www.onvif.org/name/Gate\n\t "
        "onvif://www.onvif.org/hardware/H-1</d:Scopes>"
        "<d:XAddrs>http://192.168.1.20/onvif https://[2001:db8::1]/onvif</d:XAddrs>"
        "<d:MetadataVersion>10</d:MetadataVersion>");
}

// The only match of a reply that must have one.
ProbeMatch OnlyMatch(const std::string& reply) {
    const auto matches = ReadReply(reply);
    EXPECT_TRUE(matches.has_value()) << reply;
    EXPECT_EQ(matches.value_or(std::vector<ProbeMatch>()).size(), 1U) << reply;
    return matches && matches->size() == 1 ? matches->front() : ProbeMatch();
}

std::string InUtf16(const std::string& ascii) {
    std::string text = "\xFF\xFE";
    for (const char character : ascii) {
        text += character;
        text += '\0';
    }
    return text;
}

}  // namespace

TEST(Reply, EverythingOfAMatchIsKept) {
    const ProbeMatch match = OnlyMatch(Reply(Camera()));
    EXPECT_EQ(match.endpoint, "urn:uuid:5f5a");
    EXPECT_THAT(match.types,
                ElementsAre(kTransmitter, "{http://www.onvif.org/ver10/device/wsdl}Device"));
    EXPECT_THAT(match.scopes, ElementsAre("onvif://www.onvif.org/name/Gate",
                                          "onvif://www.onvif.org/hardware/H-1"));
    EXPECT_THAT(match.xaddrs,
                ElementsAre("http://192.168.1.20/onvif", "https://[2001:db8::1]/onvif"));
    EXPECT_EQ(match.metadataVersion, 10);
}

TEST(Reply, EachOfSeveralMatchesIsRead) {
    const auto matches =
        ReadReply(Reply(Match("<d:XAddrs>http://192.168.1.1/</d:XAddrs>") + "<!-- -->" +
                        Match("<d:XAddrs>http://192.168.1.2/</d:XAddrs>") + Match("")));
    ASSERT_TRUE(matches);
    ASSERT_EQ(matches->size(), 3U);
    EXPECT_THAT((*matches)[0].xaddrs, ElementsAre("http://192.168.1.1/"));
    EXPECT_THAT((*matches)[1].xaddrs, ElementsAre("http://192.168.1.2/"));
    EXPECT_THAT((*matches)[2].xaddrs, ElementsAre());
}

TEST(Reply, EmptyProbeMatchesIsAReplyWithoutMatches) {
    const auto matches = ReadReply(Reply(""));
    ASSERT_TRUE(matches);
    EXPECT_TRUE(matches->empty());
}

TEST(Reply, OtherMessagesAreNone) {
    for (const std::string& text : {std::string(), std::string("hello"), std::string("<a><b>"),
                                    std::string(3, '\0'), Envelope(""), Envelope("<d:Hello/>")}) {
        EXPECT_FALSE(ReadReply(text)) << text;
    }
}

TEST(Reply, DocumentTypeIsRefused) {
    EXPECT_FALSE(ReadReply("<!DOCTYPE e [<!ENTITY a 'b'>]>" + Reply(Camera())));
}

TEST(Reply, PrefixIsTheSendersChoice) {
    EXPECT_THAT(OnlyMatch(Reply("<d:ProbeMatch><d:Types "
                                "xmlns:q='http://www.onvif.org/ver10/network/wsdl'>"
                                "q:NetworkVideoTransmitter</d:Types></d:ProbeMatch>"))
                    .types,
                ElementsAre(kTransmitter));
}

TEST(Reply, DefaultNamespaceCountsForTypes) {
    EXPECT_THAT(OnlyMatch(Reply(Match("<Types xmlns='http://www.onvif.org/ver10/network/wsdl'>"
                                      "NetworkVideoTransmitter</Types>")))
                    .types,
                ElementsAre(kTransmitter));
}

TEST(Reply, TypeWithAPrefixWithoutMeaningStaysAsSent) {
    EXPECT_THAT(OnlyMatch(Reply(Match("<d:Types>x:Thing Plain</d:Types>"))).types,
                ElementsAre("x:Thing", "Plain"));
}

TEST(Reply, ElementsOfUndeclaredPrefixesAreRead) {
    EXPECT_THAT(OnlyMatch("<S:Envelope><S:Body><w:ProbeMatches><w:ProbeMatch>"
                          "<w:XAddrs>http://192.168.1.20/</w:XAddrs>"
                          "</w:ProbeMatch></w:ProbeMatches></S:Body></S:Envelope>")
                    .xaddrs,
                ElementsAre("http://192.168.1.20/"));
}

TEST(Reply, ZeroBytesDoNotCostWhatFollows) {
    std::string reply = Reply(Camera());
    reply.insert(reply.find("<d:XAddrs>"), std::string(3, '\0'));
    reply.insert(0, 1, '\0');
    reply.append(500, '\0');
    EXPECT_EQ(OnlyMatch(reply).metadataVersion, 10);
}

TEST(Reply, Utf16IsRead) {
    EXPECT_EQ(OnlyMatch(InUtf16(Reply(Camera()))).endpoint, "urn:uuid:5f5a");
}

TEST(Reply, Latin1IsRead) {
    EXPECT_THAT(OnlyMatch("<?xml version='1.0' encoding='ISO-8859-1'?>" +
                          Reply(Match("<d:Scopes>onvif://x/name/T\xFCr</d:Scopes>")))
                    .scopes,
                ElementsAre("onvif://x/name/T\xC3\xBCr"));
}

TEST(Reply, WhatIsCutOffCostsOnlyWhatFollows) {
    const std::string reply = Reply(Camera());
    const ProbeMatch match = OnlyMatch(reply.substr(0, reply.find("<d:XAddrs>") + 15));
    EXPECT_EQ(match.endpoint, "urn:uuid:5f5a");
    EXPECT_EQ(match.scopes.size(), 2U);
}

TEST(Reply, LongestDatagramIsRead) {
    std::string reply = Reply(Match("<d:Scopes>onvif://x/name/A</d:Scopes>"));
    reply.insert(reply.find("<d:ProbeMatch>"),
                 "<!--" + std::string(kLongestReplyBytes - reply.size() - 7, 'x') + "-->");
    ASSERT_EQ(reply.size(), kLongestReplyBytes);
    EXPECT_EQ(OnlyMatch(reply).scopes.size(), 1U);
    EXPECT_FALSE(ReadReply(reply + " "));
}

TEST(Reply, AnyWhiteSpaceEndsAnEntry) {
    for (const char* space : {" ", "\t", "\n", "\r\n", " \t\n "}) {
        EXPECT_THAT(
            OnlyMatch(Reply(Match("<d:Scopes>a" + std::string(space) + "b</d:Scopes>"))).scopes,
            ElementsAre("a", "b"));
    }
}

TEST(Reply, ListsLongerThanAKeptTextAreWhole) {
    std::string scopes;
    for (int i = 0; i < 40; ++i) {
        scopes += " onvif://www.onvif.org/type/number_" + std::to_string(i);
    }
    EXPECT_THAT(OnlyMatch(Reply(Match("<d:Scopes>" + scopes + "</d:Scopes>"))).scopes.back(),
                "onvif://www.onvif.org/type/number_39");
}

TEST(Reply, ListsAndMatchesAreBounded) {
    std::string many;
    for (int i = 0; i < 500; ++i) {
        many += "a ";
    }
    const ProbeMatch match =
        OnlyMatch(Reply(Match("<d:Types>" + many + "</d:Types><d:Scopes>" + many +
                              "</d:Scopes><d:XAddrs>" + many + "</d:XAddrs>")));
    EXPECT_EQ(match.types.size(), 64U);
    EXPECT_EQ(match.scopes.size(), 64U);
    EXPECT_EQ(match.xaddrs.size(), 64U);
    std::string matches;
    for (int i = 0; i < 2000; ++i) {
        matches += "<d:ProbeMatch/>";
    }
    EXPECT_EQ(ReadReply(Reply(matches)).value().size(), 256U);
}

TEST(Reply, ListsOfLongEntriesAreBoundedInAll) {
    std::string many;
    for (int i = 0; i < 64; ++i) {
        many += std::string(500, 'a') + " ";
    }
    const ProbeMatch match = OnlyMatch(
        Reply(Match("<d:Types xmlns='" + std::string(480, 'n') + "'>" + many.substr(0, 64 * 3) +
                    "</d:Types><d:Scopes>" + many + "</d:Scopes>")));
    EXPECT_EQ(match.scopes.size(), 32U);  // 16384 bytes
    EXPECT_EQ(match.types.size(), 1U);
}

TEST(Reply, LongNamespacesAreBoundedInAll) {
    std::string names;
    for (int i = 0; i < 64; ++i) {
        names += "n" + std::to_string(i) + " ";
    }
    EXPECT_LE(OnlyMatch(Reply(Match("<d:Types xmlns='" + std::string(500, 'n') + "'>" + names +
                                    "</d:Types>")))
                  .types.size(),
              33U);
}

TEST(Reply, MetadataVersionIsANumberOrUnknown) {
    for (const char* text : {"", "x", "-1", "99999999999"}) {
        EXPECT_EQ(OnlyMatch(Reply(Match("<d:MetadataVersion>" + std::string(text) +
                                        "</d:MetadataVersion>")))
                      .metadataVersion,
                  0)
            << text;
    }
}
