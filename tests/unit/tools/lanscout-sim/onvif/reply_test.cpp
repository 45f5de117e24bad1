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

}  // namespace
