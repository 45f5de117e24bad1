#include "finder/machine/neighbourtable.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>

#include <cerrno>
#include <system_error>

#include "tests/unit/support/fakenetlink.h"

using namespace Lanscout;
using FakeNetlink::Built;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string kMacBytes("\x00\x1B\xFF\x01\x02\x0A", 6);
constexpr char kMac[] = "00:1B:FF:01:02:0A";

std::string Packed(int family, const char* text) {
    char bytes[sizeof(in6_addr)] = "";
    inet_pton(family, text, &bytes);
    return {&bytes[0], family == AF_INET ? sizeof(in_addr) : sizeof(in6_addr)};
}

struct Entry {
    const char* address = "10.0.0.7";
    int state = NUD_REACHABLE;
    std::string mac = kMacBytes;
    int index = 4;
    int family = AF_INET;
    int type = RTM_NEWNEIGH;
};

Built Message(const Entry& entry) {
    Built message(entry.type);
    auto* const header = static_cast<ndmsg*>(message.Extra(sizeof(ndmsg)));
    header->ndm_family = static_cast<unsigned char>(entry.family);
    header->ndm_ifindex = entry.index;
    header->ndm_state = static_cast<std::uint16_t>(entry.state);
    message.With(NDA_DST, Packed(entry.family, entry.address)).With(NDA_LLADDR, entry.mac);
    return message;
}

void Tell(const Entry& entry) {
    FakeNetlink::Current().datagrams.push_back(Message(entry).Bytes());
}

std::vector<Neighbour> All(NeighbourTable& table) {
    std::vector<Neighbour> all;
    table.Read([&](const Neighbour& one) { all.push_back(one); });
    return all;
}

// What the table makes of one entry.
std::vector<Neighbour> Read(const Entry& entry) {
    const FakeNetlink::Scope scope;
    NeighbourTable table;
    Tell(entry);
    return All(table);
}

std::size_t Requests() {
    return FakeNetlink::Current().requests.size();
}

}  // namespace

TEST(NeighbourTable, EntryOfTheDumpIsTold) {
    EXPECT_THAT(Read({}), ElementsAre(Neighbour{4, "10.0.0.7", kMac}));
}

TEST(NeighbourTable, Ipv6EntryIsTold) {
    EXPECT_THAT(Read({.address = "fe80::1", .family = AF_INET6}),
                ElementsAre(Neighbour{4, "fe80::1", kMac}));
}

TEST(NeighbourTable, EveryUsableStateCounts) {
    for (const int state : {NUD_REACHABLE, NUD_STALE, NUD_DELAY, NUD_PROBE, NUD_PERMANENT}) {
        EXPECT_EQ(Read({.state = state}).size(), 1U) << state;
    }
}

TEST(NeighbourTable, OtherStatesDoNotCount) {
    for (const int state : {NUD_NONE, NUD_INCOMPLETE, NUD_FAILED, NUD_NOARP}) {
        EXPECT_THAT(Read({.state = state}), IsEmpty()) << state;
    }
}

TEST(NeighbourTable, MacAddressesOfNoSingleMachineDoNotCount) {
    EXPECT_THAT(Read({.mac = std::string(6, '\0')}), IsEmpty());
    EXPECT_THAT(Read({.mac = std::string(6, '\xFF')}), IsEmpty());
    EXPECT_THAT(Read({.mac = std::string("\x01\x00\x5E\x00\x00\x01", 6)}), IsEmpty());
    EXPECT_THAT(Read({.mac = kMacBytes.substr(0, 5)}), IsEmpty());
    EXPECT_THAT(Read({.mac = std::string(20, 'x')}), IsEmpty());
}

TEST(NeighbourTable, EntryThatGoesIsNotTold) {
    EXPECT_THAT(Read({.type = RTM_DELNEIGH}), IsEmpty());
}

TEST(NeighbourTable, OtherFamiliesAreNotTold) {
    EXPECT_THAT(Read({.family = AF_BRIDGE}), IsEmpty());
}

TEST(NeighbourTable, AddressOfTheWrongLengthIsNotTold) {
    const FakeNetlink::Scope scope;
    NeighbourTable table;
    Built message(RTM_NEWNEIGH);
    auto* const header = static_cast<ndmsg*>(message.Extra(sizeof(ndmsg)));
    header->ndm_family = AF_INET6;
    header->ndm_ifindex = 4;
    header->ndm_state = NUD_REACHABLE;
    message.With(NDA_DST, Packed(AF_INET, "10.0.0.7")).With(NDA_LLADDR, kMacBytes);
    FakeNetlink::Current().datagrams.push_back(message.Bytes());
    EXPECT_THAT(All(table), IsEmpty());
}

TEST(NeighbourTable, MessageCutAtAnyByteDoesNoHarm) {
    const std::string whole = Message({}).Bytes();
    for (std::size_t size = 1; size < whole.size(); ++size) {
        const FakeNetlink::Scope scope;
        NeighbourTable table;
        FakeNetlink::Current().datagrams.push_back(whole.substr(0, size));
        EXPECT_THAT(All(table), IsEmpty()) << size;
    }
}

TEST(NeighbourTable, SeveralMessagesOfADatagramAreTold) {
    const FakeNetlink::Scope scope;
    NeighbourTable table;
    FakeNetlink::Current().datagrams.push_back(Message({}).Bytes() +
                                               Message({.address = "10.0.0.8"}).Bytes());
    EXPECT_EQ(All(table).size(), 2U);
}

TEST(NeighbourTable, NoticesAreAskedForAndTheWholeTableOnce) {
    const FakeNetlink::Scope scope;
    NeighbourTable table;
    EXPECT_EQ(FakeNetlink::Current().groups, static_cast<unsigned int>(RTMGRP_NEIGH));
    FakeNetlink::Current().Done();
    All(table);
    Tell({});
    EXPECT_EQ(All(table).size(), 1U);
    EXPECT_EQ(Requests(), 1U);
}

TEST(NeighbourTable, LostNoticesMeanToAskAgain) {
    const FakeNetlink::Scope scope;
    NeighbourTable table;
    FakeNetlink::Current().Done();
    FakeNetlink::Current().Fails(ENOBUFS);
    All(table);
    EXPECT_EQ(Requests(), 2U);
}

TEST(NeighbourTable, NoSecondRequestBeforeTheFirstAnswerEnds) {
    const FakeNetlink::Scope scope;
    NeighbourTable table;
    FakeNetlink::Current().Fails(ENOBUFS);
    All(table);
    EXPECT_EQ(Requests(), 1U);
    FakeNetlink::Current().Done();
    All(table);
    EXPECT_EQ(Requests(), 2U);
    FakeNetlink::Current().Done();
    All(table);
    EXPECT_EQ(Requests(), 2U);
}

TEST(NeighbourTable, TableThatChangedMeanwhileIsAskedForAgain) {
    const FakeNetlink::Scope scope;
    NeighbourTable table;
    FakeNetlink::Current().Done(NLM_F_DUMP_INTR);
    All(table);
    EXPECT_EQ(Requests(), 2U);
}

TEST(NeighbourTable, KernelThatNeverStopsIsLeftAfterAWhile) {
    const FakeNetlink::Scope scope;
    NeighbourTable table;
    for (int i = 0; i < 5000; ++i) {
        Tell({});
    }
    EXPECT_LT(All(table).size(), 5000U);
}

TEST(NeighbourTable, RefusalsThrowWithTheReason) {
    const auto failure = [](const auto& setUp) {
        const FakeNetlink::Scope scope;
        setUp(FakeNetlink::Current());
        try {
            NeighbourTable table;
            FakeNetlink::Current().Refuses(EPERM);
            All(table);
        } catch (const std::system_error& error) {
            EXPECT_EQ(FakeNetlink::Current().open, 0);
            return error.code().value();
        }
        return 0;
    };
    EXPECT_EQ(failure([](auto& kernel) { kernel.openError = EMFILE; }), EMFILE);
    EXPECT_EQ(failure([](auto& kernel) { kernel.bindError = EACCES; }), EACCES);
    EXPECT_EQ(failure([](auto& kernel) { kernel.sendError = ENOMEM; }), ENOMEM);
    EXPECT_EQ(failure([](auto& kernel) { kernel.Fails(EIO); }), EIO);
    EXPECT_EQ(failure([](auto& /*kernel*/) {}), EPERM);
}

TEST(MacOfNeighbour, KernelIsAskedForThatOne) {
    const FakeNetlink::Scope scope;
    auto& kernel = FakeNetlink::Current();
    kernel.onRequest = [&] { kernel.datagrams.push_back(Message({}).Answering().Bytes()); };
    EXPECT_EQ(MacOfNeighbour("10.0.0.7", "lo"), kMac);
    ASSERT_EQ(Requests(), 1U);
    EXPECT_NE(kernel.requests[0].find(Packed(AF_INET, "10.0.0.7")), std::string::npos);
    EXPECT_EQ(kernel.open, 0);
}

TEST(MacOfNeighbour, NobodyIsKnownWhereTheKernelRefuses) {
    const FakeNetlink::Scope scope;
    FakeNetlink::Current().onRequest = [] { FakeNetlink::Current().Refuses(ENOENT); };
    EXPECT_EQ(MacOfNeighbour("10.0.0.7", "lo"), "");
}

TEST(MacOfNeighbour, WhatIsNoAddressOrNoInterfaceIsNotAskedFor) {
    const FakeNetlink::Scope scope;
    EXPECT_EQ(MacOfNeighbour("10.0.0", "lo"), "");
    EXPECT_EQ(MacOfNeighbour("10.0.0.7", "no such one"), "");
    EXPECT_EQ(Requests(), 0U);
}
