#include "tools/lanscout-sim/scenario.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tools/lanscout-sim/population.h"
#include "tools/lanscout-sim/report.h"

using lansim::ParseScenario;
using lansim::SetupError;
using lansim::ToText;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;
using ::testing::ThrowsMessage;

namespace {

void ExpectComplaint(const std::string& json, const std::string& place, const std::string& what) {
    EXPECT_THAT([&] { ParseScenario(json, "office.json"); },
                ThrowsMessage<SetupError>(AllOf(HasSubstr(place), HasSubstr(what))))
        << json;
}

TEST(SimScenario, CameraHasWhatIsWritten) {
    const auto scenario = ParseScenario(R"({"cameras": [{
        "name": "Gate", "maker": "Own", "hardware": "H 1", "location": "Yard",
        "ip": "10.99.1.20", "mac": "02:4c:00:00:00:Ff", "port": 8080, "shape": 2,
        "uuid": "u", "types": ["Device"], "misbehave": ["no-arp", "duplicate"],
        "xaddrs": ["http://x/"], "scopes": ["a:b"]}]})",
                                        "office.json");
    ASSERT_THAT(scenario.cameras, SizeIs(1));
    const auto& camera = scenario.cameras[0];
    EXPECT_EQ(camera.name, "Gate");
    EXPECT_EQ(ToText(camera.ip), "10.99.1.20");
    EXPECT_EQ(ToText(camera.mac), "02:4C:00:00:00:FF");
    EXPECT_EQ(camera.port, 8080);
    EXPECT_FALSE(camera.isVideoTransmitter);
    EXPECT_TRUE(camera.isDevice);
    EXPECT_TRUE(camera.Does(lansim::Misbehaviour::NoArp));
    EXPECT_TRUE(camera.Does(lansim::Misbehaviour::Duplicate));
    EXPECT_THAT(XAddrsOf(camera), ElementsAre("http://x/"));
    EXPECT_THAT(ScopesOf(camera), ElementsAre("a:b"));
}

TEST(SimScenario, WhatIsLeftOpenIsOpen) {
    const auto scenario = ParseScenario(R"({"cameras": [{"name": "Gate"}]})", "office.json");
    EXPECT_EQ(scenario.cameras.at(0).ip, lansim::Ipv4{});
    EXPECT_TRUE(scenario.cameras.at(0).isVideoTransmitter);
}

TEST(SimScenario, CommentsAreAllowed) {
    EXPECT_THAT(ParseScenario("// lab\n{\"cameras\": []}", "office.json").cameras, SizeIs(0));
}

TEST(SimScenario, MistakesAreNamedWithTheirPlace) {
    ExpectComplaint("[1]", "office.json", "no object");
    ExpectComplaint("{", "office.json", "not JSON");
    ExpectComplaint(R"({"camera": []})", "office.json: camera:", "not known here");
    ExpectComplaint(R"({"cameras": 5})", "office.json: cameras:", "5 is no list");
    ExpectComplaint(R"({"cameras": [{}, 7]})", "office.json: cameras[1]:", "no object");
    ExpectComplaint(R"({"devices": [{}]})", "devices[0].kind:", "neither onvif nor upnp");
    ExpectComplaint(R"({"title": "\u001b[31m", "x": 1})", "office.json: x:", "not known");
}

TEST(SimScenario, MistakesInACameraAreNamedWithTheMembersPath) {
    const std::pair<const char*, const char*> mistakes[] = {
        {R"("ipp": "")", "ipp: not known here"},
        {R"("ip": "10.1")", "ip: \"10.1\" is not an IPv4 address"},
        {R"("ip": 7)", "ip: 7 is no text"},
        {R"("mac": "02:4C")", "mac: \"02:4C\" is not a MAC address"},
        {R"("port": 70000)", "port: 70000 is not 1 to 65535"},
        {R"("port": 65536)", "port: 65536 is not 1 to 65535"},
        {R"("port": 0)", "port: 0 is not 1"},
        {R"("port": -1)", "port: -1 is not 1"},
        {R"("port": 80.5)", "port: 80.5 is no whole number"},
        {R"("port": "80")", "port: \"80\" is no whole number"},
        {R"("port": 1e999)", "not JSON"},
        {R"("uuid": "a b")", "uuid: \"a b\" makes no URI"},
        {R"("endpoint": "no uri")", "endpoint: \"no uri\" is no URI"},
        {R"("endpoint": "7:x")", "endpoint: \"7:x\" is no URI"},
        {R"("types": ["Fax"])", "types: \"Fax\" is neither"},
        {R"("types": ["{nowhere}Fax"])", "types: \"{nowhere}Fax\" is neither"},
        {R"("types": ["{urn:a}<Fax"])", "is neither"},
        {R"("types": "Device")", "types: \"Device\" is no list of texts"},
        {R"("scopes": [1])", "scopes: [1] is no list of texts"},
        {R"("misbehave": ["x"])", "misbehave: misbehaviour \"x\" is not known"},
        {R"("misbehave": ["upnp-404"])", "misbehave: misbehaviour \"upnp-404\" is not known"},
        {R"("misbehave": [], "misbehaviours": [])", "misbehaviours: is the same"},
        {R"("shape": 99)", "shape: 99 is not 0 to 7"},
        {R"("channels": 65)", "channels: 65 is not 0 to 64"},
        {R"("delayMs": 60001)", "delayMs: 60001 is not 0 to 60000"},
        {R"("foreign": 1)", "foreign: 1 is neither true nor false"},
        {R"("name": "a", "name": "b")", "\"name\" is there twice"},
        {R"("reply": "/nowhere/x.xml")", "reply: cannot open /nowhere/x.xml: No such file"},
        {R"("reply": "/dev/zero")", "reply: /dev/zero is no file"},
        {R"("reply": "base64:?")", "reply: what follows base64: is not that"},
        {R"("reply": "base64:")", "reply: has 0 bytes"},
    };
    for (const auto& [member, complaint] : mistakes) {
        const bool isWhole = std::string_view(complaint).starts_with("\"") ||
                             std::string_view(complaint).starts_with("not JSON") ||
                             std::string_view(complaint).starts_with("is ");
        ExpectComplaint(
            fmt::format(R"({{"cameras": [{{}}, {{{}}}]}})", member),
            isWhole ? "office.json" : fmt::format("office.json: cameras[1].{}", complaint),
            complaint);
    }
}

TEST(SimScenario, TwoMachinesOfOneMacAddressAreRefused) {
    ExpectComplaint(R"({"cameras": [{"ip": "10.0.0.1", "mac": "02:4C:00:00:00:01"},
                                    {"ip": "10.0.0.2", "mac": "02:4c:00:00:00:01"}]})",
                    "cameras[1].mac", "02:4C:00:00:00:01 is that of office.json: cameras[0]");
    EXPECT_THAT(ParseScenario(R"({"cameras": [{"ip": "10.0.0.1", "mac": "02:4C:00:00:00:01"}],
                                  "upnp": [{"ip": "10.0.0.1", "mac": "02:4C:00:00:00:01"}]})",
                              "x")
                    .upnpDevices,
                SizeIs(1));
}

TEST(SimScenario, DepthIsBoundedAndCostsNoStack) {
    const std::string open(200000, '[');
    ExpectComplaint(open, "office.json", "nested more than 32 deep");
    ExpectComplaint(open + std::string(200000, ']'), "office.json", "nested more than 32 deep");
    std::string objects;
    for (int i = 0; i < 100000; ++i) {
        objects += "{\"a\":";
    }
    ExpectComplaint(objects, "office.json", "nested more than 32 deep");
}

TEST(SimScenario, NullIsTheSameAsNothing) {
    const auto scenario =
        ParseScenario(R"({"cameras": [{"delayMs": null, "name": null}]})", "office.json");
    EXPECT_FALSE(scenario.cameras.at(0).delay);
    EXPECT_EQ(scenario.cameras.at(0).name, "");
}

TEST(SimScenario, PrinterHasTypesOfItsOwn) {
    const auto scenario = ParseScenario(
        R"({"cameras": [{"types": ["{http://schemas.xmlsoap.org/ws/2006/02/devprof}Device"]}]})",
        "office.json");
    const auto& printer = scenario.cameras.at(0);
    EXPECT_FALSE(printer.isDevice);
    EXPECT_FALSE(printer.isVideoTransmitter);
    EXPECT_THAT(printer.otherTypes,
                ElementsAre(lansim::QualifiedName{"http://schemas.xmlsoap.org/ws/2006/02/devprof",
                                                  "Device"}));
}

TEST(SimScenario, RecordedReplyIsTheTextTheFileOrItsBytes) {
    const std::string file = "sim_scenario_test." + std::to_string(getpid());
    std::ofstream(file) << "<file/>";
    const auto scenario = ParseScenario(R"({"cameras": [{"reply": "<text/>"}, {"reply": ")" + file +
                                            R"("}, {"reply": "base64:AP8="}]})",
                                        "office.json");
    std::filesystem::remove(file);
    EXPECT_EQ(*scenario.cameras.at(0).recordedReply, "<text/>");
    EXPECT_EQ(*scenario.cameras.at(1).recordedReply, "<file/>");
    EXPECT_EQ(*scenario.cameras.at(2).recordedReply, std::string("\0\xFF", 2));
}

TEST(SimScenario, FilesStandBesideTheScenario) {
    EXPECT_THAT([] { ParseScenario(R"({"cameras": [{"reply": "x.xml"}]})", "/nowhere/o.json"); },
                ThrowsMessage<SetupError>(HasSubstr("cannot open /nowhere/x.xml")));
}

// What --devices writes makes the same devices again, to the byte.
TEST(SimScenario, TruthOfARunIsItsScenario) {
    lansim::PopulationRequest request;
    request.network = *lansim::ParseSubnet("10.99.0.1/16");
    request.generated = 20;
    request.generatedUpnp = 6;
    request.generatedForeign = 2;
    request.shares = {{lansim::Misbehaviour::Duplicate, 0.2},
                      {lansim::Misbehaviour::UpnpFlood, .1}};
    auto population = MakePopulation(request);
    population.cameras[3].otherTypes = {{"urn:a", "Computer"}};
    population.cameras[4].channels = 2;
    population.cameras[5].delay = std::chrono::milliseconds(12);
    population.cameras[6].recordedReply = std::make_shared<const std::string>("<a>\xFF</a>");
    population.cameras[7].endpoint = "urn:own:7";
    const std::string truth = Truth(population).dump();
    const auto scenario = ParseScenario(truth, "truth.json");
    lansim::PopulationRequest again;
    again.network = request.network;
    again.named = scenario.cameras;
    again.namedUpnp = scenario.upnpDevices;
    EXPECT_TRUE(Truth(MakePopulation(again)).dump() == truth);
}

TEST(SimScenario, MissingFileIsNamed) {
    EXPECT_THAT([] { lansim::ReadScenario("/nowhere/office.json"); },
                ThrowsMessage<SetupError>(HasSubstr("/nowhere/office.json: No such file")));
}

}  // namespace
