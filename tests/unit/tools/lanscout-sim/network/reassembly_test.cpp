#include "tools/lanscout-sim/network/reassembly.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tools/lanscout-sim/network/frames.h"

using lansim::Datagram;
using lansim::Ipv4;
using lansim::IsFragment;
using lansim::Mac;
using lansim::Reassembly;

namespace {

constexpr Mac kFrom{0x02, 0, 0, 0, 0, 1};
constexpr Mac kTo{0x02, 0x4C, 0x0A, 0x63, 0x00, 0x0A};

std::vector<std::string> Frames(const std::string& payload, std::uint16_t id) {
    return lansim::UdpFrames(kFrom, kTo, {{Ipv4{1}, 5}, {Ipv4{2}, 3702}, payload, {}, {}}, id);
}

std::string PayloadOf(const std::optional<std::string>& frame) {
    if (!frame) {
        return "nothing";
    }
    const auto heard = lansim::ReadFrame(*frame);
    const auto* datagram = std::get_if<Datagram>(&heard);
    return datagram == nullptr ? "no datagram" : datagram->payload;
}

TEST(SimReassembly, ShortDatagramIsNoFragment) {
    EXPECT_FALSE(IsFragment(Frames("x", 1).at(0)));
    EXPECT_FALSE(IsFragment(""));
    EXPECT_FALSE(IsFragment("short"));
}

TEST(SimReassembly, LongDatagramIsWholeWithItsLastFragmentInAnyOrder) {
    const std::string payload = std::string(2000, 'a') + std::string(2000, 'b');
    auto frames = Frames(payload, 7);
    ASSERT_EQ(frames.size(), 3U);
    for (int turn = 0; turn < 2; ++turn) {
        Reassembly reassembly;
        for (std::size_t i = 0; i < frames.size(); ++i) {
            EXPECT_TRUE(IsFragment(frames[i]));
            const auto whole = reassembly.Add(frames[i]);
            EXPECT_EQ(PayloadOf(whole), i == 2 ? payload : "nothing") << "fragment " << i;
        }
        std::reverse(frames.begin(), frames.end());
    }
}

TEST(SimReassembly, PacketsAreToldApartByTheirNumber) {
    const auto one = Frames(std::string(2000, 'a'), 1);
    const auto other = Frames(std::string(2000, 'b'), 2);
    Reassembly reassembly;
    EXPECT_FALSE(reassembly.Add(one[0]));
    EXPECT_FALSE(reassembly.Add(other[1]));
    EXPECT_EQ(PayloadOf(reassembly.Add(one[1])), std::string(2000, 'a'));
    EXPECT_EQ(PayloadOf(reassembly.Add(other[0])), std::string(2000, 'b'));
}

TEST(SimReassembly, FirstFragmentsWithoutEndAreForgotten) {
    Reassembly reassembly;
    const auto awaited = Frames(std::string(2000, 'a'), 1);
    EXPECT_FALSE(reassembly.Add(awaited[0]));
    for (std::uint16_t id = 2; id < 1000; ++id) {
        EXPECT_FALSE(reassembly.Add(Frames(std::string(2000, 'x'), id)[0]));
    }
    EXPECT_FALSE(reassembly.Add(awaited[1])) << "forgotten, or the memory has no bound";
    const auto next = Frames(std::string(2000, 'c'), 5000);
    EXPECT_FALSE(reassembly.Add(next[0]));
    EXPECT_EQ(PayloadOf(reassembly.Add(next[1])), std::string(2000, 'c'));
}

TEST(SimReassembly, FragmentThatIsNonsenseIsNothing) {
    Reassembly reassembly;
    std::string frame = Frames(std::string(2000, 'a'), 1)[0];
    frame[14] = '\x4F';  // a header of 60 bytes
    EXPECT_FALSE(reassembly.Add(frame.substr(0, 40)));
    EXPECT_FALSE(reassembly.Add(std::string(34, '\xFF')));
}

}  // namespace
