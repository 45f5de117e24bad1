#include "finder/source/explain.h"

#include <gmock/gmock.h>

using namespace Lanscout;
using testing::HasSubstr;

namespace {

const Target kTarget{"eth7", "192.0.2.9"};

Problem Explain(const std::string& message) {
    const auto problem = ExplainLogLine(
        kTarget,
        "2026-11-21T01:58:25.660+00:00 NOTICE discovery utils/wsdiscoverybase:1 F: " + message);
    EXPECT_TRUE(problem) << message;
    return problem.value_or(Problem{});
}

}  // namespace

TEST(Explain, TakenPortIsSaidWithItsNumber) {
    EXPECT_THAT(Explain("Bind socket failed. [98]").what, HasSubstr("UDP port 3702"));
    EXPECT_THAT(Explain("Bind socket failed. [98]").what, HasSubstr("taken by"));
}

TEST(Explain, UnreachableNetworkMeansThatTheAddressHasGone) {
    EXPECT_THAT(Explain("Send probe message failed. [101]").what, HasSubstr("no longer"));
    EXPECT_THAT(Explain("Send probe message failed. [101]").remedy,
                HasSubstr("ip -4 address show dev eth7"));
}

TEST(Explain, InterfaceThatIsDownComesWithTheCommand) {
    EXPECT_THAT(Explain("Send probe message failed. [100]").remedy,
                HasSubstr("ip link set dev eth7 up"));
}

TEST(Explain, MissingPermissionIsSaid) {
    EXPECT_THAT(Explain("Bind socket failed. [13]").what, HasSubstr("not permitted"));
    EXPECT_THAT(Explain("Send probe message failed. [1]").what, HasSubstr("not permitted"));
}

TEST(Explain, OtherErrorsAreNamedByTheSystemsText) {
    EXPECT_THAT(Explain("Send probe message failed. [105]").what, HasSubstr("(errno 105)"));
    EXPECT_THAT(Explain("Create socket failed. [24]").what, HasSubstr("Too many open files"));
    EXPECT_THAT(Explain("Create Thread Failed: [11]").what, HasSubstr("(errno 11)"));
}

TEST(Explain, LineNamesInterfaceAddressAndProtocol) {
    EXPECT_THAT(ProblemText(Explain("Set recv timeout failed.")),
                HasSubstr("lanscout: eth7 (192.0.2.9) onvif: "));
}

TEST(Explain, WhatConcernsOneDeviceIsNoProblemOfTheSearch) {
    EXPECT_FALSE(ExplainLogLine(kTarget, "INFO Camera found: IP: [1.2.3.4]"));
    EXPECT_FALSE(ExplainLogLine(kTarget, "NOTICE Get interface failed"));
    EXPECT_FALSE(ExplainLogLine(kTarget, ""));
}

TEST(Explain, TextsOfTheSystemCannotReachTheTerminalRaw) {
    EXPECT_THAT(ProblemText({Problem::Weight::Error, {"e\x1b[2J", ""}, "", "bad", ""}),
                HasSubstr("e\\x1b[2J: bad"));
}
