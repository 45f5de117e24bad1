#include "tools/lanscout-sim/network/frames.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "tools/lanscout-sim/network/frames6.h"

using lansim::ArpReplyFrame;
using lansim::ArpRequest;
using lansim::ArpRequestFrame;
using lansim::Datagram;
using lansim::Heard;
using lansim::Host;
using lansim::Ipv4;
using lansim::Mac;
using lansim::ReadFrame;
using lansim::UdpFrames;

namespace {

constexpr Mac kSearcherMac{0x02, 0, 0, 0, 0, 1};
constexpr Mac kCameraMac{0x02, 0x4C, 0x0A, 0x63, 0x00, 0x0A};
constexpr Ipv4 kSearcherIp{0x0A630001};
constexpr Ipv4 kCameraIp{0x0A63000A};

std::string Hex(const std::string& bytes) {
    std::string text;
    for (const char c : bytes) {
        text += "0123456789abcdef"[(c >> 4) & 15], text += "0123456789abcdef"[c & 15];
    }
    return text;
}

std::string FromHex(std::string_view hex) {
    std::string bytes;
    std::string digits;
    for (const char c : hex) {
        if (c != ' ') {
            digits += c;
        }
    }
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

// An ARP request as Linux sends it: who has 10.99.0.10, tell 10.99.0.1.
const std::string kArpRequest = FromHex(
    "ffffffffffff 020000000001 0806"  // broadcast, from, ARP
    "0001 0800 06 04 0001"            // Ethernet, IPv4, request
    "020000000001 0a630001 000000000000 0a63000a");

TEST(SimFrames, ArpRequestIsRead) {
    const Heard heard = ReadFrame(kArpRequest);
    ASSERT_TRUE(std::holds_alternative<ArpRequest>(heard));
    const auto& request = std::get<ArpRequest>(heard);
    EXPECT_EQ(request.target, kCameraIp);
    EXPECT_EQ(request.senderIp, kSearcherIp);
    EXPECT_EQ(request.senderMac, kSearcherMac);
}

TEST(SimFrames, ArpReplyGoesToTheAskerWithTheCamerasMac) {
    const std::string reply = ArpReplyFrame({kCameraIp, kCameraMac}, {kSearcherIp, kSearcherMac});
    EXPECT_EQ(Hex(reply).substr(0, 84),
              "020000000001"
              "024c0a63000a"
              "0806"
              "0001080006040002"
              "024c0a63000a0a63000a"
              "0200000000010a630001");
}

TEST(SimFrames, ArpReplyIsNoRequest) {
    const std::string reply = ArpReplyFrame({kCameraIp, kCameraMac}, {kSearcherIp, kSearcherMac});
    EXPECT_TRUE(std::holds_alternative<std::monostate>(ReadFrame(reply)));
}

TEST(SimFrames, ArpQuestionOfACameraIsBroadcast) {
    const std::string question = ArpRequestFrame({kCameraIp, kCameraMac}, kSearcherIp);
    const auto heard = ReadFrame(question);
    ASSERT_TRUE(std::holds_alternative<ArpRequest>(heard));
    EXPECT_EQ(std::get<ArpRequest>(heard).senderMac, kCameraMac);
    EXPECT_EQ(std::get<ArpRequest>(heard).target, kSearcherIp);
    EXPECT_EQ(Hex(question).substr(0, 12), "ffffffffffff");
}

TEST(SimFrames, DatagramSurvivesItsFrame) {
    const Datagram datagram{{kCameraIp, 3702}, {kSearcherIp, 4000}, "reply"};
    const auto frames = UdpFrames(kCameraMac, kSearcherMac, datagram, 1);
    ASSERT_EQ(frames.size(), 1U);
    const auto heard = ReadFrame(frames[0]);
    ASSERT_TRUE(std::holds_alternative<Datagram>(heard));
    const auto& read = std::get<Datagram>(heard);
    EXPECT_EQ(read.fromMac, kCameraMac);
    EXPECT_EQ(read.from, datagram.from);
    EXPECT_EQ(read.to, datagram.to);
    EXPECT_EQ(read.payload, "reply");
}

TEST(SimFrames, EmptyDatagramIsADatagram) {
    const auto frames =
        UdpFrames(kCameraMac, kSearcherMac, {{kCameraIp, 3702}, {kSearcherIp, 4000}, ""}, 1);
    ASSERT_EQ(frames.size(), 1U);
    ASSERT_TRUE(std::holds_alternative<Datagram>(ReadFrame(frames[0])));
}

// Byte offsets in a frame: 14 of Ethernet, then the IPv4 header of 20.
std::size_t FragmentField(const std::string& frame) {
    const auto byte = [&](std::size_t i) { return static_cast<std::size_t>(frame[i] & 255); };
    return byte(20) << 8 | byte(21);
}

TEST(SimFrames, LongDatagramIsCutIntoFragmentsThatJoin) {
    const std::string payload(6000, 'x');
    const auto frames =
        UdpFrames(kCameraMac, kSearcherMac, {{kCameraIp, 3702}, {kSearcherIp, 4000}, payload}, 77);
    ASSERT_EQ(frames.size(), 5U);
    std::size_t joined = 0;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        EXPECT_LE(frames[i].size(), 14U + 1500U);
        EXPECT_EQ(FragmentField(frames[i]) & 0x1FFF, joined / 8) << "fragment " << i;
        EXPECT_EQ((FragmentField(frames[i]) & 0x2000) != 0, i + 1 < frames.size())
            << "more fragments, " << i;
        EXPECT_EQ(Hex(frames[i].substr(18, 2)), "004d") << "one identification for all";
        EXPECT_EQ(frames[i][23], 17) << "UDP";
        joined += frames[i].size() - 14 - 20;
    }
    EXPECT_EQ(joined, 6000U + 8U);
}

TEST(SimFrames, LargestUnfragmentedPayloadIs1472Bytes) {
    const auto count = [](std::size_t size) {
        return UdpFrames(kCameraMac, kSearcherMac,
                         {{kCameraIp, 3702}, {kSearcherIp, 4000}, std::string(size, 'x')}, 1)
            .size();
    };
    EXPECT_EQ(count(1472), 1U);
    EXPECT_EQ(count(1473), 2U);
}

// The SYN of a connection from 10.99.0.1 to 10.99.0.10, and two bytes of Ethernet padding.
const std::string kSynPacket = FromHex(
    "4500 0028 0001 4000 40 06 0000 0a630001 0a63000a"
    "c000 c001 00000001 00000000 5002 ffff 0000 0000");

TEST(SimFrames, TcpIsHandedOnAsAnIpPacketWithoutPadding) {
    const std::string frame =
        FromHex("024c0a63000a 020000000001 0800") + kSynPacket + std::string(2, '\0');
    const Heard heard = ReadFrame(frame);
    ASSERT_TRUE(std::holds_alternative<lansim::TcpPacket>(heard));
    const auto& tcp = std::get<lansim::TcpPacket>(heard);
    EXPECT_EQ(tcp.to, kCameraIp);
    EXPECT_EQ(tcp.from, kSearcherIp);
    EXPECT_EQ(tcp.fromMac, kSearcherMac);
    EXPECT_EQ(Hex(tcp.packet), Hex(kSynPacket));
}

TEST(SimFrames, IpPacketTellsItsEndsAndTravelsUnchanged) {
    const auto ends = lansim::EndsOf(kSynPacket);
    ASSERT_TRUE(ends);
    EXPECT_EQ(ends->from, kSearcherIp);
    EXPECT_EQ(ends->to, kCameraIp);
    EXPECT_EQ(Hex(lansim::IpFrame(kCameraMac, kSearcherMac, kSynPacket)),
              "020000000001024c0a63000a0800" + Hex(kSynPacket));
    EXPECT_FALSE(lansim::EndsOf("\x45"));
}

TEST(SimFrames, OddFramesMeanNothing) {
    for (std::size_t size = 0; size < kArpRequest.size(); ++size) {
        EXPECT_TRUE(std::holds_alternative<std::monostate>(ReadFrame(kArpRequest.substr(0, size))))
            << size << " bytes";
    }
    EXPECT_TRUE(std::holds_alternative<std::monostate>(ReadFrame(std::string(60, '\xFF'))));
}

TEST(SimFrames, MulticastStaysNearAndAReplyMayTravel) {
    const auto ttlOf = [](Ipv4 to, std::uint16_t port) {
        const auto frame =
            UdpFrames(kCameraMac, kSearcherMac, {{kCameraIp, port}, {to, port}, "x", {}, {}}, 1)[0];
        return static_cast<int>(static_cast<unsigned char>(frame[22]));
    };
    EXPECT_EQ(ttlOf(Ipv4{0xEFFFFFFA}, 1900), 2);
    EXPECT_EQ(ttlOf(Ipv4{0xEFFFFFFA}, 3702), 1);
    EXPECT_EQ(ttlOf(kSearcherIp, 1900), 64);
}

constexpr unsigned kFin = 1;
constexpr unsigned kSyn = 2;
constexpr unsigned kRst = 4;
constexpr unsigned kAck = 16;

// An IP packet with a TCP segment from port 40000 to 81.
lansim::TcpPacket Segment(unsigned seq, unsigned ack, unsigned flags,
                          const std::string& text = "") {
    const auto packet =
        FromHex(fmt::format("4500 {:04x} 0001 4000 40 06 0000 0a630001 0a63000a"
                            "9c40 0051 {:08x} {:08x} 50{:02x} ffff 0000 0000",
                            40 + text.size(), seq, ack, flags));
    return {kSearcherMac, kCameraMac, kSearcherIp, kCameraIp, 81, packet + text};
}

// Sequence number, acknowledgement and flags of the answer, as they stand in the frame.
std::string Answer(const lansim::TcpPacket& packet) {
    const auto frame = lansim::TcpRefusalFrame(kCameraMac, packet);
    return frame.empty() ? "" : Hex(frame.substr(38, 8)) + " " + Hex(frame.substr(47, 1));
}

TEST(SimFrames, SegmentToAClosedPortIsReset) {
    EXPECT_EQ(Answer(Segment(0x1000, 0, kSyn)), "0000000000001001 14");
    EXPECT_EQ(Answer(Segment(0x1000, 0, kFin, "abc")), "0000000000001004 14");
    EXPECT_EQ(Answer(Segment(0x1000, 0x2000, kAck, "abc")), "0000200000000000 04");
    EXPECT_EQ(Answer(Segment(0x1000, 0x2000, kRst)), "") << "no reset of a reset";
}

TEST(SimFrames, ResetGoesBackWhereTheSegmentCameFrom) {
    const auto frame = lansim::TcpRefusalFrame(kCameraMac, Segment(1, 0, kSyn));
    EXPECT_EQ(Hex(frame.substr(0, 12)), Hex(std::string(kSearcherMac.begin(), kSearcherMac.end()) +
                                            std::string(kCameraMac.begin(), kCameraMac.end())));
    EXPECT_EQ(Hex(frame.substr(26, 12)),
              "0a63000a0a6300010051"
              "9c40")
        << "addresses and ports";
}

TEST(SimFrames, DatagramToAClosedPortIsQuotedBack) {
    const Datagram datagram{{kSearcherIp, 4000}, {kCameraIp, 9}, "text", kSearcherMac, kCameraMac};
    const auto frame = lansim::PortUnreachableFrame(kCameraMac, datagram);
    EXPECT_EQ(Hex(frame.substr(26, 8)), "0a63000a0a630001");
    EXPECT_EQ(Hex(frame.substr(34, 2)), "0303") << "destination unreachable, port";
    EXPECT_EQ(Hex(frame.substr(42 + 12, 8)), "0a6300010a63000a") << "the header that is quoted";
    EXPECT_EQ(Hex(frame.substr(42 + 20, 4)), "0fa00009") << "and the ports";
    EXPECT_EQ(frame.size(), 42U + 28U);
}

// Whatever one damaged byte makes of a frame, it is read without harm, and answered or not.
TEST(SimFrames, DamagedFramesAreReadWithoutHarm) {
    const lansim::Ipv6 camera = lansim::LinkLocalOf(kCameraMac);
    const lansim::Ipv6 searcher = lansim::LinkLocalOf(kSearcherMac);
    const std::string tcp = FromHex("024c0a63000a 020000000001 0800") + kSynPacket;
    const std::vector<std::string> frames = {
        kArpRequest, tcp,
        UdpFrames(kSearcherMac, kCameraMac, {{kSearcherIp, 4000}, {kCameraIp, 9}, "text"}, 1)[0],
        UdpFrames(kSearcherMac, kCameraMac, {{searcher, 4000}, {camera, 9}, "text"}, 1)[0],
        lansim::NeighbourSolicitFrame({searcher, kSearcherMac}, camera)};
    std::size_t answered = 0;
    for (const auto& frame : frames) {
        for (std::size_t at = 0; at < frame.size(); ++at) {
            for (unsigned value = 0; value < 256; ++value) {
                std::string damaged = frame;
                damaged[at] = static_cast<char>(value);
                const Heard heard = ReadFrame(damaged);
                if (const auto* packet = std::get_if<lansim::TcpPacket>(&heard)) {
                    answered += lansim::TcpRefusalFrame(kCameraMac, *packet).empty() ? 0 : 1;
                } else if (const auto* datagram = std::get_if<Datagram>(&heard)) {
                    answered += lansim::PortUnreachableFrame(kCameraMac, *datagram).empty() ? 0 : 1;
                }
            }
        }
    }
    EXPECT_GT(answered, 10000U);
}

}  // namespace
