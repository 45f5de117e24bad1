#include "finder/source/message.h"

#include <gtest/gtest.h>

using namespace Lanscout;

TEST(Message, DeviceArrivesAsItWasSent) {
    Device device;
    device.ip = "192.168.1.20";
    device.hardware = "a\nb\x1b入口";
    device.kind = Kind::Camera;
    const std::string line = EncodeMessage(FoundMessage{device});
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    const auto message = DecodeMessage(line);
    ASSERT_TRUE(message && std::holds_alternative<FoundMessage>(*message));
    EXPECT_EQ(std::get<FoundMessage>(*message).device, device);
}

TEST(Message, LogLineArrivesWithItsLevel) {
    const auto message = DecodeMessage(EncodeMessage(LogMessage{3, "Get interface failed"}));
    ASSERT_TRUE(message && std::holds_alternative<LogMessage>(*message));
    EXPECT_EQ(std::get<LogMessage>(*message).level, 3);
    EXPECT_EQ(std::get<LogMessage>(*message).line, "Get interface failed");
}

TEST(Message, FailureArrivesWithItsCode) {
    const auto message = DecodeMessage(EncodeMessage(FailureMessage{"no port", -203}));
    ASSERT_TRUE(message && std::holds_alternative<FailureMessage>(*message));
    EXPECT_EQ(std::get<FailureMessage>(*message).code, -203);
}

TEST(Message, EndArrives) {
    const auto message = DecodeMessage(EncodeMessage(DoneMessage{}));
    EXPECT_TRUE(message && std::holds_alternative<DoneMessage>(*message));
}

TEST(Message, AnythingElseIsNone) {
    for (const char* line : {"", "hello", "[]", "{}", "{\"found\":{}}", "{\"log\":1}", "\xFF"}) {
        EXPECT_FALSE(DecodeMessage(line)) << line;
    }
}
