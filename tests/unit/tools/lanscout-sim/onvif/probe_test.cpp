#include "tools/lanscout-sim/onvif/probe.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <string>

using lansim::ParseProbe;
using lansim::Probe;
using lansim::ProbeError;
using lansim::QualifiedName;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr const char* kNetwork = "http://www.onvif.org/ver10/network/wsdl";
constexpr const char* kDevice = "http://www.onvif.org/ver10/device/wsdl";

std::string Envelope(const std::string& probeContent,
                     const std::string& header = "<w:MessageID>uuid:1</w:MessageID>") {
    return fmt::format(
        R"(<?xml version="1.0" encoding="utf-8"?>)"
        R"(<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope")"
        R"( xmlns:w="http://schemas.xmlsoap.org/ws/2004/08/addressing" xmlns:dn="{}">)"
        R"(<s:Header>{}</s:Header><s:Body>)"
        R"(<p:Probe xmlns:p="http://schemas.xmlsoap.org/ws/2005/04/discovery">{}</p:Probe>)"
        R"(</s:Body></s:Envelope>)",
        kNetwork, header, probeContent);
}

Probe Read(const std::string& bytes) {
    const auto parsed = ParseProbe(bytes);
    const auto* error = std::get_if<ProbeError>(&parsed);
    EXPECT_EQ(error, nullptr) << "refused as " << NameOf(*error) << ": " << bytes;
    return error != nullptr ? Probe{} : std::get<Probe>(parsed);
}

std::string Refusal(const std::string& bytes) {
    const auto parsed = ParseProbe(bytes);
    const auto* error = std::get_if<ProbeError>(&parsed);
    return error == nullptr ? "accepted" : std::string(NameOf(*error));
}

TEST(SimProbe, TypeIsResolvedThroughAPrefixOfTheEnvelope) {
    const auto probe = Read(Envelope("<p:Types>dn:NetworkVideoTransmitter</p:Types>"));
    EXPECT_THAT(probe.types, ElementsAre(QualifiedName{kNetwork, "NetworkVideoTransmitter"}));
}

TEST(SimProbe, InnermostDeclarationOfAPrefixWins) {
    const auto probe =
        Read(Envelope(fmt::format("<p:Types xmlns:dn=\"{}\">dn:Device</p:Types>", kDevice)));
    EXPECT_THAT(probe.types, ElementsAre(QualifiedName{kDevice, "Device"}));
}

TEST(SimProbe, TypeWithoutPrefixStandsInTheDefaultNamespace) {
    const auto probe =
        Read(Envelope(fmt::format("<p:Types xmlns=\"{}\">\n Device\t</p:Types>", kDevice)));
    EXPECT_THAT(probe.types, ElementsAre(QualifiedName{kDevice, "Device"}));
}

TEST(SimProbe, UndeclaredPrefixIsRefused) {
    EXPECT_EQ(Refusal(Envelope("<p:Types>tds:Device</p:Types>")), "unknownPrefix");
}

TEST(SimProbe, ProbeWithoutTypesAsksForAny) {
    const auto probe = Read(Envelope(""));
    EXPECT_THAT(probe.types, IsEmpty());
    EXPECT_THAT(probe.scopes, IsEmpty());
    EXPECT_EQ(probe.messageId, "uuid:1");
}

TEST(SimProbe, ScopesAndTheirRuleAreRead) {
    const auto probe = Read(Envelope("<p:Scopes MatchBy=\"rule\"> a://b/c\n d://e </p:Scopes>"));
    EXPECT_THAT(probe.scopes, ElementsAre("a://b/c", "d://e"));
    EXPECT_EQ(probe.matchBy, "rule");
}

TEST(SimProbe, MissingMessageIdIsRefusedForNothingCouldRelateToIt) {
    EXPECT_EQ(Refusal(Envelope("", "")), "noMessageId");
    EXPECT_EQ(Refusal(Envelope("", "<w:MessageID> </w:MessageID>")), "noMessageId");
}

TEST(SimProbe, OtherDocumentsAreToldApart) {
    EXPECT_EQ(Refusal(""), "notXml");
    EXPECT_EQ(Refusal("M-SEARCH * HTTP/1.1\r\n\r\n"), "notXml");
    EXPECT_EQ(Refusal("<Envelope/>"), "notSoap");
    EXPECT_EQ(Refusal("<Envelope xmlns='http://www.w3.org/2003/05/soap-envelope'/>"),
              "otherMessage");
    std::string cutOff = Envelope("");
    cutOff.pop_back();
    EXPECT_EQ(Refusal(cutOff), "notXml");
}

TEST(SimProbe, ProbeOfAnotherProtocolVersionIsAnotherMessage) {
    std::string probe = Envelope("");
    const std::string mine = "http://schemas.xmlsoap.org/ws/2005/04/discovery";
    probe.replace(probe.find(mine), mine.size(),
                  "http://docs.oasis-open.org/ws-dd/ns/discovery/2009/01");
    EXPECT_EQ(Refusal(probe), "otherMessage");
}

TEST(SimProbe, DoctypeIsRefusedBeforeItsDeclarationsAreRead) {
    std::string bomb = "<!DOCTYPE x [<!ENTITY % a '%a;'><!ENTITY % b '&#37;a;&#37;a;'> %b;]>";
    EXPECT_EQ(Refusal(bomb + "<x/>"), "doctype");
    EXPECT_EQ(Refusal("<!DOCTYPE x SYSTEM 'file:///etc/passwd'><x/>"), "doctype");
}

TEST(SimProbe, DoctypeIsRefusedInUtf16Too) {
    const std::string text = "<!DOCTYPE x [<!ENTITY a 'b'>]><x/>";
    std::string bytes = "\xFF\xFE";
    for (const char c : text) {
        bytes += std::string{c, '\0'};
    }
    EXPECT_EQ(Refusal(bytes), "doctype");
}

TEST(SimProbe, ZeroByteInsideIsNotXml) {
    std::string probe = Envelope("");
    probe[probe.size() / 2] = '\0';
    EXPECT_EQ(Refusal(probe), "notXml");
}

TEST(SimProbe, LongestProbeIs16384Bytes) {
    const std::string probe = Envelope("");
    const auto padded = [&](std::size_t size) {
        return probe + std::string(size - probe.size(), ' ');
    };
    EXPECT_EQ(Refusal(padded(16384)), "accepted");
    EXPECT_EQ(Refusal(padded(16385)), "tooLong");
}

TEST(SimProbe, DeepNestingIsRefusedWithoutHarm) {
    std::string deep;
    for (int i = 0; i < 5000; ++i) {
        deep += "<a>";
    }
    EXPECT_EQ(Refusal(deep), "notXml");
}

}  // namespace
