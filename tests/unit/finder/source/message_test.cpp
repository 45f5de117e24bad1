#include "finder/source/message.h"

#include <gtest/gtest.h>

using namespace Lanscout;

TEST(Message, SightingArrivesAsItWasSent) {
    Sighting sighting{SourceId::UpnpSearch, {"eth0", "192.168.1.2"}, {}};
    sighting.device.ip = "192.168.1.20";
    sighting.device.hardware = "a\nb\x1b入口";
    sighting.device.kind = Kind::Camera;
    const std::string line = EncodeMessage(SightingMessage{sighting});
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    const auto message = DecodeMessage(line);
    ASSERT_TRUE(message && std::holds_alternative<SightingMessage>(*message));
    const Sighting& read = std::get<SightingMessage>(*message).sighting;
    EXPECT_EQ(read.device, sighting.device);
    EXPECT_EQ(read.via, sighting.via);
    EXPECT_EQ(read.source, SourceId::UpnpSearch);
}

TEST(Message, LogLineArrivesWithItsLevel) {
    const auto message = DecodeMessage(EncodeMessage(LogMessage{3, "Get interface failed"}));
    ASSERT_TRUE(message && std::holds_alternative<LogMessage>(*message));
    EXPECT_EQ(std::get<LogMessage>(*message).level, 3);
    EXPECT_EQ(std::get<LogMessage>(*message).text, "Get interface failed");
}

TEST(Message, FailureArrivesWithItsTarget) {
    const auto message =
        DecodeMessage(EncodeMessage(FailureMessage{{"eth0", "10.0.0.1"}, "no port", "wait"}));
    ASSERT_TRUE(message && std::holds_alternative<FailureMessage>(*message));
    const auto& failure = std::get<FailureMessage>(*message);
    EXPECT_EQ(failure.target, (Target{"eth0", "10.0.0.1"}));
    EXPECT_EQ(failure.what, "no port");
    EXPECT_EQ(failure.remedy, "wait");
}

TEST(Message, NoticeIsNoFailure) {
    const auto message = DecodeMessage(EncodeMessage(NoticeMessage{{}, "a wire", ""}));
    ASSERT_TRUE(message && std::holds_alternative<NoticeMessage>(*message));
    EXPECT_EQ(std::get<NoticeMessage>(*message).what, "a wire");
}

TEST(Message, EndArrives) {
    const auto message = DecodeMessage(EncodeMessage(DoneMessage{}));
    EXPECT_TRUE(message && std::holds_alternative<DoneMessage>(*message));
}

TEST(Message, AnythingElseIsNone) {
    for (const char* line : {"", "hello", "[]", "{}", "{\"device\":{}}", "\xFF",
                             R"({"device":{"ip":"1.2.3.4"},"source":99})",
                             R"({"device":{"ip":"1.2.3.4"},"source":-1})"}) {
        EXPECT_FALSE(DecodeMessage(line)) << line;
    }
}
