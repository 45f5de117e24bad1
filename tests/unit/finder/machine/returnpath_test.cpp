#include "finder/machine/returnpath.h"

#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <cerrno>

#include "tests/unit/support/fakenetlink.h"
#include "tests/unit/support/scratchfolder.h"

using namespace Lanscout;
using FakeNetlink::Built;

namespace {

constexpr unsigned int kNoRoute = 0;

// Whether a reply is dropped, with these settings of all interfaces and of this one, where the
// way back leads through the interface of that index.
bool Drops(const char* all, const char* one, unsigned int towards, const char* name = "lo") {
    const FakeNetlink::Scope scope;
    const ScratchFolder settings;
    settings.Write("all/rp_filter", all);
    settings.Write("lo/rp_filter", one);
    auto& kernel = FakeNetlink::Current();
    kernel.onRequest = [&] {
        if (towards == kNoRoute) {
            return kernel.Refuses(ENETUNREACH);
        }
        Built route(RTM_NEWROUTE);
        route.Extra(sizeof(rtmsg));
        route.With(RTA_OIF, std::string(reinterpret_cast<const char*>(&towards), sizeof towards));
        kernel.datagrams.push_back(route.Answering().Bytes());
    };
    return ReturnPath({name}, settings.Path()).Drops("192.168.77.5", name);
}

unsigned int Loopback() {
    return if_nametoindex("lo");
}

}  // namespace

TEST(ReturnPath, FilterThatIsOffDropsNothing) {
    EXPECT_FALSE(Drops("0\n", "0\n", kNoRoute));
}

TEST(ReturnPath, StrictFilterWantsTheWayBackThroughTheSameInterface) {
    EXPECT_FALSE(Drops("0\n", "1\n", Loopback()));
    EXPECT_TRUE(Drops("0\n", "1\n", Loopback() + 1));
    EXPECT_TRUE(Drops("0\n", "1\n", kNoRoute));
}

TEST(ReturnPath, LooseFilterWantsAnyWayBack) {
    EXPECT_FALSE(Drops("0\n", "2\n", Loopback() + 1));
    EXPECT_TRUE(Drops("0\n", "2\n", kNoRoute));
}

TEST(ReturnPath, LargerSettingCounts) {
    EXPECT_TRUE(Drops("1\n", "0\n", Loopback() + 1));
    EXPECT_FALSE(Drops("1\n", "2\n", Loopback() + 1));
}

TEST(ReturnPath, AliasHasTheSettingOfItsInterface) {
    EXPECT_TRUE(Drops("0\n", "1\n", kNoRoute, "lo:1"));
}

TEST(ReturnPath, MissingSettingsDropNothing) {
    const FakeNetlink::Scope scope;
    const ScratchFolder settings;
    ReturnPath path({"lo"}, settings.Path());
    EXPECT_FALSE(path.Drops("192.168.77.5", "lo"));
    EXPECT_FALSE(path.Drops("192.168.77.5", "eth9"));
    EXPECT_EQ(FakeNetlink::Current().open, 0);
}
