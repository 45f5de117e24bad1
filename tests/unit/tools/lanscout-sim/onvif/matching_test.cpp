#include "tools/lanscout-sim/onvif/matching.h"

#include <gtest/gtest.h>

using lansim::Camera;
using lansim::Matches;
using lansim::Misbehaviour;
using lansim::Probe;
using lansim::QualifiedName;
using lansim::ScopeMatches;

namespace {

const QualifiedName kTransmitter{std::string(lansim::kOnvifNetworkNs), "NetworkVideoTransmitter"};
const QualifiedName kDevice{std::string(lansim::kOnvifDeviceNs), "Device"};

Probe Asking(std::vector<QualifiedName> types, std::vector<std::string> scopes = {}) {
    return {"uuid:1", std::move(types), std::move(scopes), ""};
}

Camera GateCamera() {
    Camera camera;
    camera.hardware = "IPC-100";
    camera.location = "Main Gate";
    return camera;
}

TEST(SimMatching, CameraAnswersEitherOfItsTypesBothAndNone) {
    const Camera camera = GateCamera();
    EXPECT_TRUE(Matches(Asking({kTransmitter}), camera));
    EXPECT_TRUE(Matches(Asking({kDevice}), camera));
    EXPECT_TRUE(Matches(Asking({kTransmitter, kDevice}), camera));
    EXPECT_TRUE(Matches(Asking({}), camera));
}

TEST(SimMatching, TypeOfAnotherNamespaceIsNotItsOwn) {
    EXPECT_FALSE(Matches(Asking({{"urn:other", "NetworkVideoTransmitter"}}), GateCamera()));
    EXPECT_FALSE(Matches(Asking({{std::string(lansim::kOnvifDeviceNs), "NetworkVideoTransmitter"}}),
                         GateCamera()));
}

TEST(SimMatching, EveryTypeAskedForIsNeeded) {
    EXPECT_FALSE(Matches(Asking({kTransmitter, {"urn:other", "Computer"}}), GateCamera()));
}

TEST(SimMatching, PrinterIsADeviceAndNoTransmitter) {
    Camera printer = GateCamera();
    printer.misbehaviours = {Misbehaviour::DeviceOnly};
    EXPECT_FALSE(Matches(Asking({kTransmitter}), printer));
    EXPECT_TRUE(Matches(Asking({kDevice}), printer));
}

TEST(SimMatching, EveryScopeAskedForMustBeMet) {
    const std::string hardware = "onvif://www.onvif.org/hardware/IPC-100";
    EXPECT_TRUE(Matches(Asking({}, {hardware}), GateCamera()));
    EXPECT_TRUE(Matches(Asking({}, {"onvif://www.onvif.org/location"}), GateCamera()));
    EXPECT_FALSE(Matches(Asking({}, {hardware, "onvif://www.onvif.org/name/X"}), GateCamera()));
}

TEST(SimMatching, ScopeMatchesBySegmentsNotByLetters) {
    EXPECT_TRUE(ScopeMatches("a://b/abc", "a://b/abc/def", ""));
    EXPECT_TRUE(ScopeMatches("a://b/abc/", "a://b/abc", ""));
    EXPECT_FALSE(ScopeMatches("a://b/abc", "a://b/abcdef", ""));
    EXPECT_FALSE(ScopeMatches("a://b/abc/def", "a://b/abc", ""));
}

TEST(SimMatching, CaseCountsInThePathOnly) {
    EXPECT_TRUE(ScopeMatches("ONVIF://WWW.onvif.org/a", "onvif://www.onvif.org/a", ""));
    EXPECT_FALSE(ScopeMatches("onvif://www.onvif.org/A", "onvif://www.onvif.org/a", ""));
}

TEST(SimMatching, StringRuleComparesWholeTexts) {
    const std::string rule = std::string(lansim::kDiscoveryNs) + "/strcmp0";
    EXPECT_TRUE(ScopeMatches("a://b/c", "a://b/c", rule));
    EXPECT_FALSE(ScopeMatches("a://b", "a://b/c", rule));
}

TEST(SimMatching, UnknownRuleMeetsNothing) {
    EXPECT_FALSE(ScopeMatches("a://b", "a://b", "http://example.org/rule"));
}

}  // namespace
