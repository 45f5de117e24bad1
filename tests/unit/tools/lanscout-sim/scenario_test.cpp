#include "tools/lanscout-sim/scenario.h"

#include <gmock/gmock.h>

#include "tools/lanscout-sim/population.h"

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
    ExpectComplaint(R"({"camera": []})", "office.json", "\"camera\" is not known");
    ExpectComplaint(R"({"cameras": 5})", "office.json", "wrong kind");
    ExpectComplaint(R"({"cameras": [{}, {"ipp": ""}]})", "cameras[1]", "\"ipp\" is not known");
    ExpectComplaint(R"({"cameras": [{"ip": "10.1"}]})", "cameras[0]", "an IPv4 address");
    ExpectComplaint(R"({"cameras": [{"mac": "02:4C"}]})", "cameras[0]", "a MAC address");
    ExpectComplaint(R"({"cameras": [{"types": ["Fax"]}]})", "cameras[0]", "type \"Fax\"");
    ExpectComplaint(R"({"cameras": [{"misbehave": ["x"]}]})", "cameras[0]", "misbehaviour \"x\"");
    ExpectComplaint(R"({"cameras": [{"shape": 99}]})", "cameras[0]", "it takes 0 to 7");
}

TEST(SimScenario, MissingFileIsNamed) {
    EXPECT_THAT([] { lansim::ReadScenario("/nowhere/office.json"); },
                ThrowsMessage<SetupError>(HasSubstr("/nowhere/office.json: No such file")));
}

}  // namespace
