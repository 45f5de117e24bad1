#include "tools/lanscout-sim/onvif/probe.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <string>

using lansim::ParseProbe;
using lansim::Probe;
using lansim::ProbeError;
using lansim::QualifiedName;
using lansim::RequestKind;
using lansim::Strictness;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr const char* kNetwork = "http://www.onvif.org/ver10/network/wsdl";
constexpr const char* kDevice = "http://www.onvif.org/ver10/device/wsdl";

constexpr const char* kId = "<w:MessageID>uuid:1</w:MessageID>";
constexpr const char* kTo = "<w:To>urn:schemas-xmlsoap-org:ws:2005:04:discovery</w:To>";
constexpr const char* kAction =
    "<w:Action>http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</w:Action>";
const std::string kHeader = std::string(kId) + kTo + kAction;

std::string Envelope(const std::string& probeContent, const std::string& header = kHeader) {
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

std::string Refusal(const std::string& bytes, Strictness strictness = Strictness::Strict) {
    const auto parsed = ParseProbe(bytes, strictness);
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
    const std::string rule = "http://schemas.xmlsoap.org/ws/2005/04/discovery/strcmp0";
    const auto probe =
        Read(Envelope("<p:Scopes MatchBy=\"" + rule + "\"> a://b/c\n d://e </p:Scopes>"));
    EXPECT_THAT(probe.scopes, ElementsAre("a://b/c", "d://e"));
    EXPECT_EQ(probe.matchBy, rule);
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
    probe.replace(probe.rfind(mine), mine.size(),
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

// A Probe with everything, then each rule broken alone. What a lenient device says stands behind.
struct Broken {
    const char* what;
    std::string bytes;
    const char* strict;
    const char* lenient;
};

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    text.replace(text.find(from), from.size(), to);
    return text;
}

std::vector<Broken> BrokenProbes() {
    const std::string good = Envelope("");
    const std::string soap12 = "http://www.w3.org/2003/05/soap-envelope";
    const std::string soap11 = "http://schemas.xmlsoap.org/soap/envelope/";
    const std::string mine = R"(<x:Mine xmlns:x="urn:x" s:mustUnderstand="{}"{}/>)";
    const auto with = [&](const std::string& block) { return Envelope("", kHeader + block); };
    return {
        {"soap 1.1", Replaced(good, soap12, soap11), "soap11", "accepted"},
        {"no Action", Envelope("", std::string(kId) + kTo), "noAction", "accepted"},
        {"Action of a Hello",
         Envelope("", std::string(kId) + kTo + Replaced(kAction, "/Probe<", "/Hello<")),
         "wrongAction", "accepted"},
        {"Action of a Resolve",
         Envelope("", std::string(kId) + kTo + Replaced(kAction, "/Probe<", "/Resolve<")),
         "wrongAction", "accepted"},
        {"no To", Envelope("", std::string(kId) + kAction), "noTo", "accepted"},
        {"empty To", Envelope("", std::string(kId) + kAction + "<w:To/>"), "noTo", "accepted"},
        {"two MessageIDs", with(kId), "repeatedHeader", "accepted"},
        {"two Actions", with(kAction), "repeatedHeader", "accepted"},
        {"two Tos", with(kTo), "repeatedHeader", "accepted"},
        {"unknown header to be understood", with(fmt::format(fmt::runtime(mine), "1", "")),
         "notUnderstood", "accepted"},
        {"the same as a word", with(fmt::format(fmt::runtime(mine), " true ", "")), "notUnderstood",
         "accepted"},
        {"unknown header that need not be", with(fmt::format(fmt::runtime(mine), "0", "")),
         "accepted", "accepted"},
        {"unknown header for somebody else",
         with(fmt::format(fmt::runtime(mine), "1", " s:role=\"urn:other\"")), "accepted",
         "accepted"},
        {"known header to be understood",
         with("<w:ReplyTo s:mustUnderstand=\"1\"><w:Address>urn:a</w:Address></w:ReplyTo>"),
         "accepted", "accepted"},
        {"zero byte behind", good + std::string(1, '\0'), "trailingBytes", "accepted"},
        {"text behind a zero byte", good + std::string("\0<a", 3), "trailingBytes", "accepted"},
        {"text behind", good + "x", "notXml", "notXml"},
        {"white space behind", good + "\r\n", "accepted", "accepted"},
        {"two Probes",
         Replaced(good, "</s:Body>",
                  "<p:Probe xmlns:p=\"http://schemas.xmlsoap.org/ws/2005/04/"
                  "discovery\"/></s:Body>"),
         "otherMessage", "accepted"},
        {"unknown rule", Envelope("<p:Scopes MatchBy=\"urn:rule\">a:b</p:Scopes>"), "unknownRule",
         "accepted"},
        {"ldap rule",
         Envelope("<p:Scopes MatchBy=\"http://schemas.xmlsoap.org/ws/2005/04/discovery/ldap\"/>"),
         "unknownRule", "accepted"},
    };
}

TEST(SimProbe, StrictDeviceTellsWhatIsWrongAndALenientOneAnswers) {
    for (const auto& [what, bytes, strict, lenient] : BrokenProbes()) {
        EXPECT_EQ(Refusal(bytes), strict) << what;
        EXPECT_EQ(Refusal(bytes, Strictness::Lenient), lenient) << what;
    }
}

// Byte for byte what the library sends, but for the id.
TEST(SimProbe, LibrarysOwnProbeIsRight) {
    const auto probe = Read(
        R"(<?xml version="1.0" encoding="utf-8"?><Envelope xmlns="http://www.w3.org/2003/05/soap-)"
        R"(envelope" xmlns:dn="http://www.onvif.org/ver10/network/wsdl" xmlns:tds="http://www.onv)"
        R"(if.org/ver10/device/wsdl"><Header><wsa:MessageID xmlns:wsa="http://schemas.xmlsoap.org)"
        R"(/ws/2004/08/addressing">uuid:11112222-3333-4444-8555-666677778888</wsa:MessageID><wsa:)"
        R"(To xmlns:wsa="http://schemas.xmlsoap.org/ws/2004/08/addressing">urn:schemas-xmlsoap-or)"
        R"(g:ws:2005:04:discovery</wsa:To><wsa:Action xmlns:wsa="http://schemas.xmlsoap.org/ws/20)"
        R"(04/08/addressing">http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</wsa:Action></)"
        R"(Header><Body><Probe xmlns="http://schemas.xmlsoap.org/ws/2005/04/discovery" xmlns:xsd=)"
        R"("http://www.w3.org/2001/XMLSchema" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instanc)"
        R"(e"><Types>dn:NetworkVideoTransmitter</Types><Scopes/></Probe></Body></Envelope>)");
    EXPECT_THAT(probe.types, ElementsAre(QualifiedName{kNetwork, "NetworkVideoTransmitter"}));
    EXPECT_EQ(probe.to, lansim::kDiscoveryTo);
}

std::string ResolveText(const std::string& reference) {
    return fmt::format(
        R"(<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope")"
        R"( xmlns:w="http://schemas.xmlsoap.org/ws/2004/08/addressing"><s:Header>{}{}<w:Action>)"
        R"(http://schemas.xmlsoap.org/ws/2005/04/discovery/Resolve</w:Action></s:Header><s:Body>)"
        R"(<p:Resolve xmlns:p="http://schemas.xmlsoap.org/ws/2005/04/discovery">{}</p:Resolve>)"
        R"(</s:Body></s:Envelope>)",
        kId, kTo, reference);
}

TEST(SimProbe, ResolveNamesTheEndpointThatItAsksFor) {
    const auto resolve =
        Read(ResolveText("<w:EndpointReference><w:Address> urn:uuid:7 </w:Address>"
                         "</w:EndpointReference>"));
    EXPECT_EQ(resolve.kind, RequestKind::Resolve);
    EXPECT_EQ(resolve.endpoint, "urn:uuid:7");
}

TEST(SimProbe, ResolveWithoutAnEndpointAsksForNothing) {
    EXPECT_EQ(Refusal(ResolveText("")), "otherMessage");
    EXPECT_EQ(Refusal(ResolveText("<w:EndpointReference/>")), "otherMessage");
}

TEST(SimProbe, Utf16ProbeEndsWhereItsTextEnds) {
    std::string bytes = "\xFF\xFE";
    for (const char c : Replaced(Envelope(""), "utf-8", "utf-16")) {
        bytes += std::string{c, '\0'};
    }
    EXPECT_EQ(Refusal(bytes), "accepted");
}

}  // namespace
