#include "finder/source/frame.h"

#include <gmock/gmock.h>
#include <pcap/pcap.h>

using namespace Lanscout;

namespace {

using namespace std::string_literals;

const std::string kOurMac = "\x02\x00\x00\x00\x00\x01"s;
const std::string kMac = "\x00\x1B\xFF\x01\x02\x0A"s;

std::string Word(std::size_t value) {
    return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

std::string Ethernet(const std::string& type, const std::string& packet,
                     const std::string& mac = kMac) {
    return kOurMac + mac + type + packet;
}

std::string Udp(const std::string& payload, int from = 3702, int to = 40000) {
    return Word(static_cast<std::size_t>(from)) + Word(static_cast<std::size_t>(to)) +
           Word(8 + payload.size()) + "\0\0"s + payload;
}

struct Ipv4 {
    std::string fragment = "\0\0"s;  // flags and offset
    std::string options{};
    char protocol = 17;
    std::string mac = kMac;
};

// 10.0.0.7 to 10.0.0.1
std::string Ipv4Frame(const std::string& udp, const Ipv4& how = {}) {
    const std::size_t header = 20 + how.options.size();
    return Ethernet("\x08\x00"s,
                    std::string(1, static_cast<char>(0x40 | header / 4)) + "\0"s +
                        Word(header + udp.size()) + "\0\1"s + how.fragment + "\x40"s +
                        std::string(1, how.protocol) + "\0\0"s + "\x0A\0\0\7"s + "\x0A\0\0\1"s +
                        how.options + udp,
                    how.mac);
}

// fe80::7 to fe80::1
std::string Ipv6Frame(char next, const std::string& rest) {
    const std::string network = "\xFE\x80"s + std::string(13, '\0');
    return Ethernet("\x86\xDD"s, "\x60\0\0\0"s + Word(rest.size()) + std::string(1, next) +
                                     "\x40"s + network + "\7"s + network + "\1"s + rest);
}

constexpr char kUdpNext = 17;
constexpr char kFragmentNext = 44;

// The first part of a datagram, or with another offset a later one.
std::string FragmentHeader(const std::string& offsetAndMore) {
    return "\x11\0"s + offsetAndMore + "\0\0\0\1"s;
}

std::string Arp(char operation = 1, const std::string& mac = kMac) {
    return Ethernet("\x08\x06"s, "\0\1\x08\0\6\4\0"s + std::string(1, operation) + mac +
                                     "\xC0\xA8\x4D\5"s + std::string(6, '\0') + "\xC0\xA8\x4D\1"s +
                                     std::string(18, '\0'));  // padding
}

std::optional<DatagramFrame> ReadDatagram(const std::string& bytes) {
    const auto frame = ReadFrame(bytes);
    return frame && std::holds_alternative<DatagramFrame>(*frame)
               ? std::optional(std::get<DatagramFrame>(*frame))
               : std::nullopt;
}

bool PassesFilter(const std::string& bytes) {
    pcap_t* const compiler = pcap_open_dead(DLT_EN10MB, 65535);
    bpf_program program{};
    EXPECT_EQ(pcap_compile(compiler, &program, kFrameFilter, 1, PCAP_NETMASK_UNKNOWN), 0)
        << pcap_geterr(compiler);
    pcap_pkthdr header{};
    header.caplen = header.len = static_cast<bpf_u_int32>(bytes.size());
    const bool passes =
        pcap_offline_filter(&program, &header, reinterpret_cast<const u_char*>(bytes.data())) != 0;
    pcap_freecode(&program);
    pcap_close(compiler);
    return passes;
}

}  // namespace

TEST(ReadFrame, DatagramHasItsSenderAndPayload) {
    const std::string bytes = Ipv4Frame(Udp("payload"));
    const auto frame = ReadDatagram(bytes);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->mac, "00:1B:FF:01:02:0A");
    EXPECT_EQ(frame->from, "10.0.0.7");
    EXPECT_EQ(frame->to, "10.0.0.1");
    EXPECT_EQ(frame->fromPort, 3702);
    EXPECT_EQ(frame->toPort, 40000);
    EXPECT_EQ(frame->payload, "payload");
}

TEST(ReadFrame, PaddingIsNoPayload) {
    const std::string bytes = Ipv4Frame(Udp("x")) + std::string(17, '\0');
    EXPECT_EQ(ReadDatagram(bytes)->payload, "x");
}

TEST(ReadFrame, PaddingIsNoPayloadOfAFragmentEither) {
    const std::string bytes =
        Ipv4Frame(Udp("the whole payload").substr(0, 8 + 3), {.fragment = "\x20\0"s}) +
        std::string(17, 'p');
    EXPECT_EQ(ReadDatagram(bytes)->payload, "the");
}

TEST(ReadFrame, OptionsAreSteppedOver) {
    const std::string bytes = Ipv4Frame(Udp("payload"), {.options = std::string(8, '\1')});
    EXPECT_EQ(ReadDatagram(bytes)->payload, "payload");
}

TEST(ReadFrame, FirstFragmentHasWhatIsInIt) {
    // The UDP header promises more than this fragment has.
    const std::string bytes =
        Ipv4Frame(Udp("the whole payload").substr(0, 8 + 9), {.fragment = "\x20\0"s});
    EXPECT_EQ(ReadDatagram(bytes)->payload, "the whole");
}

TEST(ReadFrame, LaterFragmentsSayNothing) {
    EXPECT_FALSE(ReadFrame(Ipv4Frame(Udp("payload"), {.fragment = "\x20\1"s})));
    EXPECT_FALSE(ReadFrame(Ipv4Frame(Udp("payload"), {.fragment = "\0\1"s})));
    EXPECT_FALSE(ReadFrame(Ipv6Frame(kFragmentNext, FragmentHeader("\0\x09"s) + Udp("payload"))));
}

TEST(ReadFrame, OtherProtocolsSayNothing) {
    EXPECT_FALSE(ReadFrame(Ipv4Frame(Udp("payload"), {.protocol = 6})));
    EXPECT_FALSE(ReadFrame(Ipv6Frame(6, Udp("payload"))));
    EXPECT_FALSE(ReadFrame(Ethernet("\x88\xCC"s, std::string(100, '\0'))));
}

TEST(ReadFrame, SenderThatIsNoSingleMachineSaysNothing) {
    EXPECT_FALSE(ReadFrame(Ipv4Frame(Udp("payload"), {.mac = std::string(6, '\0')})));
    EXPECT_FALSE(ReadFrame(Ipv4Frame(Udp("payload"), {.mac = std::string(6, '\xFF')})));
    EXPECT_FALSE(ReadFrame(Arp(1, "\x01\x00\x5E\0\0\1"s)));
}

TEST(ReadFrame, Ipv6DatagramIsRead) {
    const std::string bytes = Ipv6Frame(kUdpNext, Udp("payload"));
    const auto frame = ReadDatagram(bytes);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->from, "fe80::7");
    EXPECT_EQ(frame->to, "fe80::1");
    EXPECT_EQ(frame->payload, "payload");
}

TEST(ReadFrame, FirstFragmentOfIpv6IsRead) {
    const std::string bytes = Ipv6Frame(kFragmentNext, FragmentHeader("\0\1"s) + Udp("payload"));
    EXPECT_EQ(ReadDatagram(bytes)->payload, "payload");
}

TEST(ReadFrame, ArpRequestTellsWhoAsksForWhom) {
    const auto frame = ReadFrame(Arp());
    ASSERT_TRUE(frame && std::holds_alternative<ArpRequestFrame>(*frame));
    const auto& request = std::get<ArpRequestFrame>(*frame);
    EXPECT_EQ(request.mac, "00:1B:FF:01:02:0A");
    EXPECT_EQ(request.from, "192.168.77.5");
    EXPECT_EQ(request.wanted, "192.168.77.1");
}

TEST(ReadFrame, ArpReplyIsNoRequest) {
    EXPECT_FALSE(ReadFrame(Arp(2)));
}

TEST(ReadFrame, FrameCutAtAnyByteDoesNoHarm) {
    const std::size_t headers = 14 + 20 + 8;
    for (const std::string& whole :
         {Ipv4Frame(Udp("payload")), Ipv6Frame(kUdpNext, Udp("payload")), Arp()}) {
        for (std::size_t size = 0; size < whole.size(); ++size) {
            const std::string cut = whole.substr(0, size);
            const auto frame = ReadFrame(cut);
            EXPECT_TRUE(!frame || size >= headers) << size;
        }
    }
}

TEST(ReadFrame, LengthsThatLieDoNoHarm) {
    std::string bytes = Ipv4Frame(Udp("payload"));
    for (const int at : {14, 16, 17, 14 + 20 + 4, 14 + 20 + 5}) {
        for (int value = 0; value < 256; ++value) {
            std::string lying = bytes;
            lying[static_cast<std::size_t>(at)] = static_cast<char>(value);
            if (const auto frame = ReadDatagram(lying)) {
                EXPECT_LE(frame->payload.size(), 7U);
            }
        }
    }
}

TEST(FrameFilter, RepliesProbesAndArpRequestsPass) {
    EXPECT_TRUE(PassesFilter(Ipv4Frame(Udp("payload"))));
    EXPECT_TRUE(PassesFilter(Ipv4Frame(Udp("payload", 40000, 3702))));
    EXPECT_TRUE(PassesFilter(Ipv4Frame(Udp("payload"), {.fragment = "\x20\0"s})));
    EXPECT_TRUE(PassesFilter(Ipv6Frame(kUdpNext, Udp("payload"))));
    EXPECT_TRUE(PassesFilter(Ipv6Frame(kFragmentNext, FragmentHeader("\0\1"s) + Udp("payload"))));
    EXPECT_TRUE(PassesFilter(Arp()));
}

TEST(FrameFilter, AllElseDoesNot) {
    EXPECT_FALSE(PassesFilter(Ipv4Frame(Udp("payload", 53, 40000))));
    EXPECT_FALSE(PassesFilter(Ipv4Frame(Udp("payload"), {.fragment = "\x20\1"s})));
    EXPECT_FALSE(PassesFilter(Ipv4Frame(Udp("payload"), {.protocol = 47})));
    EXPECT_FALSE(PassesFilter(Ipv6Frame(kUdpNext, Udp("payload", 53, 40000))));
    EXPECT_FALSE(
        PassesFilter(Ipv6Frame(kFragmentNext, FragmentHeader("\0\x09"s) + Udp("payload"))));
    EXPECT_FALSE(PassesFilter(
        Ipv6Frame(kFragmentNext, FragmentHeader("\0\1"s) + Udp("payload", 53, 40000))));
    EXPECT_FALSE(PassesFilter(Arp(2)));
}
