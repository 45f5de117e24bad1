#include "tools/lanscout-sim/network/frames6.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

using lansim::Datagram;
using lansim::EchoRequest;
using lansim::Ipv6;
using lansim::Mac;
using lansim::NeighbourSolicit;
using lansim::ReadFrame;
using ::testing::SizeIs;

namespace {

constexpr Mac kCameraMac{0x02, 0x4C, 0x0A, 0x63, 0x00, 0x0A};
constexpr Mac kSearcherMac{0x02, 0x00, 0x00, 0x00, 0x00, 0x01};
const Ipv6 kCamera = *lansim::ParseIpv6("fe80::4c:aff:fe63:a");
const Ipv6 kSearcher = *lansim::ParseIpv6("fe80::1");

std::string Hex(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        text += fmt::format("{:02x}", static_cast<unsigned char>(c));
    }
    return text;
}

// The sum over pseudo header and content, 0xFFFF when the checksum in it is right (RFC 8200, 8.1).
unsigned ChecksumOf(const std::string& packet) {
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(packet[i]); };
    std::uint32_t sum = static_cast<std::uint32_t>(packet.size() - 40) + at(6);
    for (std::size_t i = 8; i < packet.size(); ++i) {
        sum += i % 2 == 0 ? static_cast<std::uint32_t>(at(i)) << 8U : at(i);
    }
    while (sum > 0xFFFF) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return sum;
}

TEST(SimFrames6, QuestionForANeighbourGoesToTheGroupOfItsAddress) {
    const auto frame = lansim::NeighbourSolicitFrame({kCamera, kCameraMac}, kSearcher);
    EXPECT_EQ(Hex(frame.substr(0, 14)), "3333ff000001024c0a63000a86dd");
    EXPECT_EQ(static_cast<unsigned char>(frame[21]), 255) << "hop limit";
    EXPECT_EQ(Hex(frame.substr(38, 16)), "ff0200000000000000000001ff000001");
    EXPECT_EQ(ChecksumOf(frame.substr(14)), 0xFFFFU);
    const auto heard = ReadFrame(frame);
    ASSERT_TRUE(std::holds_alternative<NeighbourSolicit>(heard));
    const auto& question = std::get<NeighbourSolicit>(heard);
    EXPECT_EQ(question.sender, kCamera);
    EXPECT_EQ(question.senderMac, kCameraMac);
    EXPECT_EQ(question.target, kSearcher);
}

TEST(SimFrames6, AnswerNamesTheMacAndSaysThatItWasAskedFor) {
    const auto frame =
        lansim::NeighbourAdvertFrame({kCamera, kCameraMac}, {kSearcher, kSearcherMac, kCamera});
    EXPECT_EQ(Hex(frame.substr(0, 14)), "020000000001024c0a63000a86dd");
    EXPECT_EQ(Hex(frame.substr(38, 16)), "fe800000000000000000000000000001");
    EXPECT_EQ(Hex(frame.substr(54, 2)), "8800") << "neighbour advertisement";
    EXPECT_EQ(Hex(frame.substr(58, 4)), "60000000") << "solicited, override";
    EXPECT_EQ(Hex(frame.substr(62, 16)), "fe80000000000000004c0afffe63000a");
    EXPECT_EQ(Hex(frame.substr(78)), "0201024c0a63000a") << "target link-layer address";
    EXPECT_EQ(ChecksumOf(frame.substr(14)), 0xFFFFU);
}

TEST(SimFrames6, QuestionThatCameThroughARouterIsIgnored) {
    auto frame = lansim::NeighbourSolicitFrame({kCamera, kCameraMac}, kSearcher);
    frame[21] = 64;
    EXPECT_TRUE(std::holds_alternative<std::monostate>(ReadFrame(frame)));
}

TEST(SimFrames6, DatagramSurvivesItsFrame) {
    const Datagram datagram{{kCamera, 3702}, {kSearcher, 4000}, "reply"};
    const auto frames = lansim::UdpFrames(kCameraMac, kSearcherMac, datagram, 1);
    ASSERT_THAT(frames, SizeIs(1));
    EXPECT_EQ(ChecksumOf(frames[0].substr(14)), 0xFFFFU);
    const auto heard = ReadFrame(frames[0]);
    ASSERT_TRUE(std::holds_alternative<Datagram>(heard));
    const auto& read = std::get<Datagram>(heard);
    EXPECT_EQ(read.from, datagram.from);
    EXPECT_EQ(read.to, datagram.to);
    EXPECT_EQ(read.payload, "reply");
    EXPECT_EQ(read.fromMac, kCameraMac);
    EXPECT_EQ(read.toMac, kSearcherMac);
}

TEST(SimFrames6, LongDatagramIsCutIntoFragmentsThatAddUp) {
    std::string payload;
    for (int i = 0; i < 4000; ++i) {
        payload += static_cast<char>(i);
    }
    const auto frames = lansim::UdpFrames(kCameraMac, kSearcherMac,
                                          {{kCamera, 3702}, {kSearcher, 4000}, payload}, 0x0102);
    ASSERT_THAT(frames, SizeIs(3));
    std::string content;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const std::string& frame = frames[i];
        EXPECT_LE(frame.size(), 14U + 1500U);
        EXPECT_EQ(Hex(frame.substr(18, 3)), fmt::format("{:04x}2c", frame.size() - 54));
        const unsigned offset = static_cast<unsigned>(static_cast<unsigned char>(frame[56])) << 8U |
                                static_cast<unsigned char>(frame[57]);
        EXPECT_EQ(offset & 0xFFF8U, content.size());
        EXPECT_EQ(offset & 1U, i + 1 < frames.size() ? 1U : 0U) << "more fragments";
        EXPECT_EQ(Hex(frame.substr(54, 2)), "1100") << "UDP follows";
        EXPECT_EQ(Hex(frame.substr(58, 4)), "00000102");
        content += frame.substr(62);
    }
    EXPECT_EQ(content.substr(8), payload);
}

TEST(SimFrames6, EchoIsAnsweredAlike) {
    const EchoRequest request{kSearcherMac, kCameraMac, kSearcher, kCamera, 7, 9, "ping"};
    const auto frame = lansim::EchoReplyFrame(kCameraMac, request);
    EXPECT_EQ(Hex(frame.substr(0, 6)), "020000000001");
    EXPECT_EQ(Hex(frame.substr(54, 2)), "8100") << "echo reply";
    EXPECT_EQ(Hex(frame.substr(58, 4)), "00070009");
    EXPECT_EQ(frame.substr(62), "ping");
    EXPECT_EQ(ChecksumOf(frame.substr(14)), 0xFFFFU);
}

TEST(SimFrames6, CutFramesMeanNothing) {
    const auto frame = lansim::NeighbourSolicitFrame({kCamera, kCameraMac}, kSearcher);
    for (std::size_t size = 0; size < 14 + 40 + 24; ++size) {
        EXPECT_TRUE(std::holds_alternative<std::monostate>(ReadFrame(frame.substr(0, size))))
            << size;
    }
}

}  // namespace
