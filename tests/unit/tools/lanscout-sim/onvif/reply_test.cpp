#include "tools/lanscout-sim/onvif/reply.h"

#include <gmock/gmock.h>
#include <libxml/parser.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <memory>

using lansim::BuildReply;
using lansim::Camera;
using lansim::Misbehaviour;
using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

Camera GateCamera(Misbehaviour kind) {
    Camera camera;
    camera.name = "Main Gate 1";
    camera.hardware = "VQ Dome 4";
    camera.location = "Hall & Yard";
    camera.uuid = "11111111-2222-4333-8444-555555555555";
    camera.ip = *lansim::ParseIpv4("10.99.0.10");
    camera.port = 8080;
    camera.misbehaviours = {kind};
    return camera;
}

Camera GateCamera() {
    Camera camera = GateCamera(Misbehaviour::Silent);
    camera.misbehaviours.clear();
    return camera;
}

std::string Reply(const Camera& camera) {
    return BuildReply(camera, {"uuid:<&>1", {}, {}, ""}, {"urn:uuid:reply", 7, 9});
}

// What an independent reader finds at an XPath; "no XML" when the bytes are no document.
std::string At(const std::string& reply, const std::string& xpath) {
    const std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> document(
        xmlReadMemory(reply.data(), static_cast<int>(reply.size()), nullptr, nullptr,
                      XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
        xmlFreeDoc);
    if (!document) {
        return "no XML";
    }
    const std::unique_ptr<xmlXPathContext, decltype(&xmlXPathFreeContext)> context(
        xmlXPathNewContext(document.get()), xmlXPathFreeContext);
    const auto add = [&](const char* prefix, std::string_view uri) {
        xmlXPathRegisterNs(context.get(), reinterpret_cast<const xmlChar*>(prefix),
                           reinterpret_cast<const xmlChar*>(std::string(uri).c_str()));
    };
    add("s", "http://www.w3.org/2003/05/soap-envelope");
    add("a", lansim::kAddressingNs);
    add("d", lansim::kDiscoveryNs);
    const std::string query = "normalize-space(" + xpath + ")";
    const std::unique_ptr<xmlXPathObject, decltype(&xmlXPathFreeObject)> result(
        xmlXPathEvalExpression(reinterpret_cast<const xmlChar*>(query.c_str()), context.get()),
        xmlXPathFreeObject);
    return reinterpret_cast<const char*>(result->stringval);
}

std::string InMatch(const std::string& reply, const std::string& name) {
    return At(reply, "/s:Envelope/s:Body/d:ProbeMatches/d:ProbeMatch[1]/" + name);
}

class SimReplyShapes : public ::testing::TestWithParam<unsigned> {};

TEST_P(SimReplyShapes, CarryTheSameMessage) {
    Camera camera = GateCamera();
    camera.shape = GetParam();
    const std::string reply = Reply(camera);
    EXPECT_EQ(At(reply, "/s:Envelope/s:Header/a:RelatesTo"), "uuid:<&>1");
    EXPECT_EQ(At(reply, "/s:Envelope/s:Header/a:MessageID"), "urn:uuid:reply");
    EXPECT_EQ(At(reply, "/s:Envelope/s:Header/a:Action"),
              "http://schemas.xmlsoap.org/ws/2005/04/discovery/ProbeMatches");
    EXPECT_EQ(At(reply, "/s:Envelope/s:Header/d:AppSequence/@MessageNumber"), "9");
    EXPECT_EQ(InMatch(reply, "a:EndpointReference/a:Address"),
              "urn:uuid:11111111-2222-4333-8444-555555555555");
    EXPECT_EQ(InMatch(reply, "d:XAddrs"), "http://10.99.0.10:8080/onvif/device_service");
    EXPECT_THAT(InMatch(reply, "d:Scopes"),
                HasSubstr("onvif://www.onvif.org/hardware/VQ%20Dome%204"));
    EXPECT_THAT(InMatch(reply, "d:Scopes"), HasSubstr("/location/Hall%20%26%20Yard"));
    EXPECT_THAT(InMatch(reply, "d:Types"), HasSubstr(":NetworkVideoTransmitter "));
    EXPECT_NE(InMatch(reply, "d:MetadataVersion"), "");
}

TEST_P(SimReplyShapes, KeepTheSchemasOrder) {
    Camera camera = GateCamera();
    camera.shape = GetParam();
    const std::string reply = Reply(camera);
    const char* kOrder[] = {"a:EndpointReference", "d:Types", "d:Scopes", "d:XAddrs",
                            "d:MetadataVersion"};
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(InMatch(reply, "*[" + std::to_string(i + 1) + "]/self::" + kOrder[i] + "!=''"),
                  "true")
            << kOrder[i];
    }
}

TEST_P(SimReplyShapes, HelloByeAndResolveMatchesAreTheSameHand) {
    Camera camera = GateCamera();
    camera.shape = GetParam();
    const std::string resolve = BuildReply(
        camera, {"uuid:1", {}, {}, "", lansim::RequestKind::Resolve, "", ""}, {"urn:m", 7, 9});
    EXPECT_EQ(At(resolve, "/s:Envelope/s:Header/a:Action"),
              "http://schemas.xmlsoap.org/ws/2005/04/discovery/ResolveMatches");
    EXPECT_EQ(At(resolve, "//d:ResolveMatches/d:ResolveMatch/d:XAddrs"),
              "http://10.99.0.10:8080/onvif/device_service");
    const std::string hello = BuildHello(camera, {"urn:m", 7, 9});
    EXPECT_EQ(At(hello, "/s:Envelope/s:Header/a:Action"),
              "http://schemas.xmlsoap.org/ws/2005/04/discovery/Hello");
    EXPECT_EQ(At(hello, "/s:Envelope/s:Header/a:To"), lansim::kDiscoveryTo);
    EXPECT_EQ(At(hello, "count(//a:RelatesTo)"), "0");
    EXPECT_EQ(At(hello, "/s:Envelope/s:Body/d:Hello/d:XAddrs"),
              "http://10.99.0.10:8080/onvif/device_service");
    const std::string bye = BuildBye(camera, {"urn:m", 7, 9});
    EXPECT_EQ(At(bye, "/s:Envelope/s:Body/d:Bye/a:EndpointReference/a:Address"),
              "urn:uuid:11111111-2222-4333-8444-555555555555");
    // A maker may add elements of its own; of the protocol's there is the address alone.
    EXPECT_EQ(At(bye, "count(/s:Envelope/s:Body/d:Bye/d:*)"), "0");
}

TEST_P(SimReplyShapes, FreeTypesAreDeclaredWhereTheyStand) {
    Camera camera = GateCamera();
    camera.shape = GetParam();
    camera.isVideoTransmitter = camera.isDevice = false;
    camera.otherTypes = {{"urn:a'\"<b>", "Computer"}, {"urn:c", "PrintDeviceType"}};
    const std::string reply = Reply(camera);
    EXPECT_EQ(InMatch(reply, "d:Types"), "t0:Computer t1:PrintDeviceType");
    EXPECT_EQ(InMatch(reply, "d:Types/namespace::*[name()='t0']"), "urn:a'\"<b>");
    EXPECT_EQ(InMatch(reply, "d:Types/namespace::*[name()='t1']"), "urn:c");
}

TEST_P(SimReplyShapes, DeclareThePrefixesOfTheirTypes) {
    Camera camera = GateCamera();
    camera.shape = GetParam();
    const std::string types = InMatch(Reply(camera), "d:Types");
    const std::string prefix = types.substr(0, types.find(':'));
    EXPECT_EQ(InMatch(Reply(camera), "d:Types/namespace::*[name()='" + prefix + "']"),
              lansim::kOnvifNetworkNs);
}

INSTANTIATE_TEST_SUITE_P(All, SimReplyShapes, ::testing::Range(0U, lansim::ShapeCount()));

TEST(SimReply, PortEightyIsNotWritten) {
    Camera camera = GateCamera();
    camera.port = 80;
    EXPECT_EQ(InMatch(Reply(camera), "d:XAddrs"), "http://10.99.0.10/onvif/device_service");
}

TEST(SimReply, NamesOfAScenarioAreEscapedInXml) {
    Camera camera = GateCamera();
    camera.scopes = {"onvif://www.onvif.org/hardware/a<b&c"};
    EXPECT_EQ(InMatch(Reply(camera), "d:Scopes"), "onvif://www.onvif.org/hardware/a<b&c");
}

TEST(SimReply, NotXmlAndCutOffAreNoDocuments) {
    EXPECT_EQ(At(Reply(GateCamera(Misbehaviour::NotXml)), "/*"), "no XML");
    EXPECT_EQ(At(Reply(GateCamera(Misbehaviour::CutOff)), "/*"), "no XML");
}

TEST(SimReply, OversizeIsGoodAsAWholeAndNoDocumentWithin4096Bytes) {
    const std::string reply = Reply(GateCamera(Misbehaviour::Oversize));
    EXPECT_GT(reply.size(), 4096U);
    EXPECT_EQ(InMatch(reply, "d:XAddrs"), "http://10.99.0.10:8080/onvif/device_service");
    EXPECT_EQ(At(reply.substr(0, 4096), "/*"), "no XML");
}

TEST(SimReply, ZeroByteStandsInsideTheReply) {
    const std::string reply = Reply(GateCamera(Misbehaviour::ZeroByte));
    const auto at = reply.find('\0');
    ASSERT_NE(at, std::string::npos);
    EXPECT_EQ(At(reply.substr(0, at), "/*"), "no XML");
}

TEST(SimReply, MissingElementsAreMissingAndOthersStay) {
    const std::string noXAddrs = Reply(GateCamera(Misbehaviour::NoXAddrs));
    EXPECT_EQ(InMatch(noXAddrs, "d:XAddrs"), "");
    EXPECT_NE(InMatch(noXAddrs, "d:Scopes"), "");
    const std::string noScopes = Reply(GateCamera(Misbehaviour::NoScopes));
    EXPECT_EQ(InMatch(noScopes, "d:Scopes"), "");
    EXPECT_NE(InMatch(noScopes, "d:XAddrs"), "");
}

TEST(SimReply, SeveralXAddrsBeginWithItsOwn) {
    EXPECT_EQ(InMatch(Reply(GateCamera(Misbehaviour::SeveralXAddrs)), "d:XAddrs"),
              "http://10.99.0.10:8080/onvif/device_service "
              "http://169.254.0.10:9000/onvif/device_service "
              "http://[fe80::a63:a]:8080/onvif/device_service");
}

TEST(SimReply, LineBreaksSeparateXAddrs) {
    EXPECT_THAT(Reply(GateCamera(Misbehaviour::LineBreakXAddrs)),
                HasSubstr("device_service\nhttp://"));
}

TEST(SimReply, OtherSchemesStandAlone) {
    EXPECT_EQ(InMatch(Reply(GateCamera(Misbehaviour::Ipv6XAddrs)), "d:XAddrs"),
              "http://[fe80::a63:a]:8080/onvif/device_service");
    EXPECT_EQ(InMatch(Reply(GateCamera(Misbehaviour::HttpsXAddrs)), "d:XAddrs"),
              "https://10.99.0.10:443/onvif/device_service");
}

TEST(SimReply, SecondProbeMatchNamesAnotherDevice) {
    const std::string reply = Reply(GateCamera(Misbehaviour::TwoProbeMatches));
    EXPECT_EQ(At(reply, "count(//d:ProbeMatch)"), "2");
    EXPECT_EQ(InMatch(reply, "d:XAddrs"), "http://10.99.0.10:8080/onvif/device_service");
    EXPECT_EQ(At(reply, "//d:ProbeMatch[2]/d:XAddrs"),
              "http://192.0.2.1:9999/onvif/device_service");
}

TEST(SimReply, FaultHasNoMatchAndRelatesToTheProbe) {
    const std::string reply = Reply(GateCamera(Misbehaviour::SoapFault));
    EXPECT_EQ(At(reply, "count(//d:ProbeMatch)"), "0");
    EXPECT_EQ(At(reply, "//s:Fault/s:Code/s:Value"), "s:Receiver");
    EXPECT_EQ(At(reply, "//a:RelatesTo"), "uuid:<&>1");
}

TEST(SimReply, EntityBombIsOneDatagramThatDeclaresAndUsesEntities) {
    const std::string reply = Reply(GateCamera(Misbehaviour::EntityBomb));
    EXPECT_LT(reply.size(), 4096U);
    EXPECT_THAT(reply, HasSubstr("<!ENTITY e9 \"&e8;&e8;"));
    EXPECT_THAT(reply, HasSubstr("&e9; onvif://"));
}

TEST(SimReply, ControlCharactersAreEncodedInTheHardwareScope) {
    const std::string reply = Reply(GateCamera(Misbehaviour::ControlCharacters));
    EXPECT_THAT(InMatch(reply, "d:Scopes"), HasSubstr("/hardware/%1B%5B31m%3Cscript%3E"));
    EXPECT_THAT(reply, Not(HasSubstr("/hardware/VQ")));
}

TEST(SimReply, PrinterNamesOnlyTheDeviceType) {
    EXPECT_THAT(InMatch(Reply(GateCamera(Misbehaviour::DeviceOnly)), "d:Types"), "tds:Device");
}

TEST(SimReply, ShapesHaveMarksSectionsReferencesAndTheMakersOwn) {
    std::string all;
    for (unsigned shape = 0; shape < lansim::ShapeCount(); ++shape) {
        Camera camera = GateCamera();
        camera.shape = shape;
        const std::string reply = Reply(camera);
        all += reply.starts_with("\xEF\xBB\xBF") ? "MARK" : "";
        all += reply;
    }
    EXPECT_THAT(all, HasSubstr("MARK"));
    EXPECT_THAT(all, HasSubstr("<XAddrs><![CDATA[http://"));
    EXPECT_THAT(all, HasSubstr("&#104;ttp&#58;&#x2F;&#x2F;10.99.0.10"));
    EXPECT_THAT(all, HasSubstr("xmlns:v=\"urn:velquora"));
    EXPECT_THAT(all, HasSubstr("MatchBy=\"http"));
}

TEST(SimReply, EndOfASectionInsideASectionStaysText) {
    Camera camera = GateCamera();
    camera.scopes = {"onvif://www.onvif.org/name/]]>]]>"};
    for (camera.shape = 0; camera.shape < lansim::ShapeCount(); ++camera.shape) {
        EXPECT_EQ(InMatch(Reply(camera), "d:Scopes"), "onvif://www.onvif.org/name/]]>]]>");
    }
}

TEST(SimReply, SecondProbeMatchHasAnEndpointOfItsOwn) {
    const std::string reply = Reply(GateCamera(Misbehaviour::TwoProbeMatches));
    const std::string address = "/a:EndpointReference/a:Address";
    EXPECT_NE(At(reply, "//d:ProbeMatch[1]" + address), At(reply, "//d:ProbeMatch[2]" + address));
    EXPECT_THAT(At(reply, "//d:ProbeMatch[2]" + address), ::testing::StartsWith("urn:uuid:"));
}

TEST(SimReply, RecorderSpeaksOfEachChannelInOneReply) {
    Camera camera = GateCamera();
    camera.channels = 3;
    const std::string reply = Reply(camera);
    EXPECT_EQ(At(reply, "count(//d:ProbeMatch)"), "4");
    EXPECT_EQ(At(reply, "count(//a:Address[not(. = preceding::a:Address)])"), "4");
    EXPECT_THAT(At(reply, "//d:ProbeMatch[4]/d:Scopes"), HasSubstr("channel%203"));
    EXPECT_EQ(reply, Reply(camera)) << "the channels' ids stay";
}

TEST(SimReply, BytesThatAreNoUtf8StandInADocumentThatSaysUtf8) {
    const std::string reply = Reply(GateCamera(Misbehaviour::BadUtf8));
    EXPECT_THAT(reply, HasSubstr("UTF-8"));
    EXPECT_THAT(reply, HasSubstr("\xFF"));
    EXPECT_EQ(At(reply, "/*"), "no XML");
}

TEST(SimReply, OtherEncodingsAreReadAsTheySay) {
    for (unsigned shape = 0; shape < lansim::ShapeCount(); ++shape) {
        for (const auto kind : {Misbehaviour::Latin1, Misbehaviour::Utf16}) {
            Camera camera = GateCamera(kind);
            camera.shape = shape;
            const std::string reply = Reply(camera);
            EXPECT_THAT(InMatch(reply, "d:Scopes"), HasSubstr("/name/Caf\xC3\xA9")) << shape;
            EXPECT_THAT(reply, Not(HasSubstr("\xC3\xA9")));
        }
    }
}

TEST(SimReply, NameThatIsNoUtf8IsRecodedToItsEnd) {
    Camera camera = GateCamera(Misbehaviour::Utf16);
    camera.scopes = {"a:\xFF\xC3"};
    EXPECT_THAT(InMatch(Reply(camera), "d:Scopes"), HasSubstr("a:??"));
    EXPECT_EQ(InMatch(Reply(camera), "d:MetadataVersion"), "1");
}

TEST(SimReply, WrongRelatesToIsNotTheProbesId) {
    const std::string reply = Reply(GateCamera(Misbehaviour::WrongRelatesTo));
    EXPECT_EQ(At(reply, "//a:RelatesTo"), "urn:uuid:00000000-0000-4000-8000-000000000000");
}

TEST(SimReply, ZeroBytesFollowAGoodReply) {
    const std::string reply = Reply(GateCamera(Misbehaviour::NulTail));
    const std::string good = Reply(GateCamera());
    EXPECT_EQ(reply, good + std::string(4, '\0'));
}

TEST(SimReply, EmptyXAddrsIsThereAndEmpty) {
    const std::string reply = Reply(GateCamera(Misbehaviour::EmptyXAddrs));
    EXPECT_EQ(At(reply, "count(//d:XAddrs)"), "1");
    EXPECT_EQ(At(reply, "//d:XAddrs"), "");
}

TEST(SimReply, HugeXAddrsBeginWithItsOwnAndFitADatagram) {
    const std::string reply = Reply(GateCamera(Misbehaviour::HugeXAddrs));
    EXPECT_THAT(InMatch(reply, "d:XAddrs"),
                ::testing::StartsWith("http://10.99.0.10:8080/onvif/device_service http://192.0."));
    EXPECT_GT(reply.size(), 20000U);
    EXPECT_LT(reply.size(), 65000U);
}

TEST(SimReply, NoMatchIsAnEmptyList) {
    const std::string reply = Reply(GateCamera(Misbehaviour::NoMatch));
    EXPECT_EQ(At(reply, "count(//d:ProbeMatches)"), "1");
    EXPECT_EQ(At(reply, "count(//d:ProbeMatches/*)"), "0");
}

TEST(SimReply, ClonesShareAnEndpoint) {
    Camera one = GateCamera(Misbehaviour::SameUuid);
    Camera other = one;
    other.uuid = "99999999-2222-4333-8444-555555555555";
    const std::string address = "a:EndpointReference/a:Address";
    EXPECT_EQ(InMatch(Reply(one), address), InMatch(Reply(other), address));
    EXPECT_NE(InMatch(Reply(one), address), "urn:uuid:" + one.uuid);
}

}  // namespace
