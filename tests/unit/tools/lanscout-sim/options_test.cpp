#include "tools/lanscout-sim/options.h"

#include <gmock/gmock.h>

using lansim::Mode;
using lansim::ParseCommandLine;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::internal::CaptureStderr;
using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStderr;
using ::testing::internal::GetCapturedStdout;

namespace {

lansim::CommandLine Parse(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "lanscout-sim");
    return ParseCommandLine(static_cast<int>(arguments.size()), arguments.data());
}

lansim::Options Good(std::vector<const char*> arguments) {
    const auto parsed = Parse(std::move(arguments));
    EXPECT_TRUE(parsed.options);
    return parsed.options.value_or(lansim::Options{});
}

void ExpectRefused(std::vector<const char*> arguments, const std::string& complaint) {
    CaptureStderr();
    const auto parsed = Parse(std::move(arguments));
    EXPECT_FALSE(parsed.options);
    EXPECT_EQ(parsed.exitStatus, 2);
    EXPECT_THAT(GetCapturedStderr(), HasSubstr(complaint));
}

TEST(SimOptions, NothingMeansFortyCamerasInAutomaticMode) {
    const auto options = Good({});
    EXPECT_EQ(options.cameras, 40U);
    EXPECT_EQ(options.upnpDevices, 0U);
    EXPECT_EQ(options.mode, Mode::Automatic);
    EXPECT_EQ(options.maxDelay, std::chrono::milliseconds(500));
    EXPECT_FALSE(options.duration);
}

TEST(SimOptions, ScenarioBringsItsOwnCamerasUnlessMoreAreAskedFor) {
    EXPECT_EQ(Good({"--scenario", "x.json"}).cameras, 0U);
    EXPECT_EQ(Good({"--scenario", "x.json", "--cameras", "5"}).cameras, 5U);
}

TEST(SimOptions, CommandKeepsItsOwnOptionsAndDashes) {
    const auto options = Good({"--cameras", "2", "--", "sh", "-c", "x", "--", "--cameras"});
    EXPECT_EQ(options.cameras, 2U);
    EXPECT_THAT(options.command, ElementsAre("sh", "-c", "x", "--", "--cameras"));
}

TEST(SimOptions, LossSetsBothWaysUnlessOneIsGiven) {
    const auto both = Good({"--loss", "5"});
    EXPECT_DOUBLE_EQ(both.probeLossPercent, 5);
    EXPECT_DOUBLE_EQ(both.replyLossPercent, 5);
    const auto one = Good({"--loss", "5", "--reply-loss", "0"});
    EXPECT_DOUBLE_EQ(one.probeLossPercent, 5);
    EXPECT_DOUBLE_EQ(one.replyLossPercent, 0);
}

TEST(SimOptions, SharesAddUp) {
    const auto options = Good({"--misbehave", "not-xml=10%", "--misbehave", "upnp-404=1"});
    ASSERT_EQ(options.shares.size(), 2U);
    EXPECT_EQ(options.shares[1].kind, lansim::Misbehaviour::UpnpDescriptionNotFound);
}

TEST(SimOptions, NetworkAndTimeAreRead) {
    const auto options = Good({"--network", "10.1.2.3/24", "--seconds", "1.5", "--burst", "20"});
    EXPECT_EQ(ToText(*options.network), "10.1.2.3/24");
    EXPECT_EQ(options.duration, std::chrono::milliseconds(1500));
    EXPECT_EQ(options.maxDelay, std::chrono::milliseconds(20));
}

TEST(SimOptions, NameOfNamespaceOrDeviceMeansNamespaceMode) {
    EXPECT_EQ(Good({"--netns", "lab"}).mode, Mode::Namespace);
    EXPECT_EQ(Good({"--tap", "cam0"}).mode, Mode::Namespace);
    EXPECT_EQ(Good({"--tap", "cam0", "--mode", "auto"}).mode, Mode::Namespace);
    ExpectRefused({"--mode", "loopback", "--netns", "lab"}, "--netns: loopback mode has no");
    ExpectRefused({"--tap", "cam0", "--mode", "loopback"}, "--tap: loopback mode has no");
}

TEST(SimOptions, ForeignAndIpv6CamerasAreCountedAndChosen) {
    EXPECT_EQ(Good({"--foreign", "3"}).foreignCameras, 3U);
    EXPECT_EQ(Good({}).ipv6, lansim::Ipv6Use::None);
    EXPECT_EQ(Good({"--ipv6", "also"}).ipv6, lansim::Ipv6Use::Also);
    EXPECT_EQ(Good({"--ipv6", "only"}).ipv6, lansim::Ipv6Use::Only);
    ExpectRefused({"--ipv6", "never"}, "--ipv6");
}

TEST(SimOptions, CountsAreWholeNumbersOfAnAskableSize) {
    ExpectRefused({"--cameras", "-1"}, "--cameras");
    ExpectRefused({"--upnp", "-1"}, "--upnp");
    ExpectRefused({"--foreign", "1.5"}, "--foreign");
    ExpectRefused({"--cameras", "1000001"}, "is no number of 0 to 1000000");
    ExpectRefused({"--cameras", "99999999999999999999999"}, "--cameras");
    EXPECT_EQ(Good({"--cameras", "1000000"}).cameras, 1000000U);
    ExpectRefused({"--seed", "-1"}, "--seed");
    EXPECT_EQ(Good({"--seed", "18446744073709551615"}).seed, UINT64_MAX);
}

TEST(SimOptions, BridgeTakesThePlaceOfANamespace) {
    const auto options = Good({"--bridge", "br0"});
    EXPECT_EQ(options.bridge, "br0");
    EXPECT_EQ(options.mode, Mode::Namespace);
    ExpectRefused({"--bridge", "br0", "--netns", "lab"}, "--netns");
    ExpectRefused({"--bridge", "br0", "--mode", "loopback"}, "--bridge: loopback mode has no");
}

TEST(SimOptions, ReadyLinesDescriptorIsOpen) {
    EXPECT_EQ(Good({"--ready-fd", "1"}).readyFd, 1);
    ExpectRefused({"--ready-fd", "999"}, "\"999\" is no open file descriptor");
    ExpectRefused({"--ready-fd", "1x"}, "is no open file descriptor");
    ExpectRefused({"--ready-fd", "-1"}, "--ready-fd");
}

TEST(SimOptions, UserIsFoundByNameAndNumber) {
    EXPECT_EQ(Good({"--user", "root"}).user->uid, 0U);
    EXPECT_EQ(Good({"--user", "0"}).user->name, "root");
    ExpectRefused({"--user", "nobody-at-all"}, "there is no user \"nobody-at-all\"");
}

TEST(SimOptions, VersionIsTold) {
    CaptureStdout();
    EXPECT_EQ(Parse({"--version"}).exitStatus, 0);
    EXPECT_THAT(GetCapturedStdout(), ::testing::StartsWith("lanscout-sim 1."));
}

TEST(SimOptions, WrongUseIsStatusTwoAndExplained) {
    ExpectRefused({"--mode", "moon"}, "--mode");
    ExpectRefused({"--misbehave", "odd=1"}, "\"odd=1\" names no misbehaviour");
    ExpectRefused({"--loss", "101"}, "--loss");
    ExpectRefused({"--network", "10.1.1.1"}, "is no ADDRESS/BITS");
    ExpectRefused({"--tap", "a-name-too-long-for-it"}, "is no device name");
    ExpectRefused({"--netns", "a/b"}, "cannot name a network namespace");
    ExpectRefused({"--"}, "must be followed by the command");
    ExpectRefused({"--camera", "5"}, "--camera");
}

TEST(SimOptions, HelpHasExamplesAndEveryMisbehaviour) {
    CaptureStdout();
    const auto parsed = Parse({"--help"});
    const std::string help = GetCapturedStdout();
    EXPECT_FALSE(parsed.options);
    EXPECT_EQ(parsed.exitStatus, 0);
    EXPECT_THAT(help, HasSubstr("Usage: lanscout-sim [OPTION]... [-- COMMAND ARG...]"));
    EXPECT_THAT(help, HasSubstr("ip netns exec lab"));
    for (const auto& entry : lansim::MisbehaviourNames()) {
        EXPECT_THAT(help, HasSubstr(std::string(entry.name) + " "));
    }
}

}  // namespace
