#include "finder/source/neighbours.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <exception>
#include <stdexcept>

#include "finder/machine/descriptor.h"
#include "finder/source/message.h"
#include "tests/unit/support/fakenetlink.h"

using namespace Lanscout;
using FakeNetlink::Built;

namespace {

void Tell(const char* address, const std::string& mac, unsigned int index) {
    const int family = std::string(address).find(':') == std::string::npos ? AF_INET : AF_INET6;
    char bytes[sizeof(in6_addr)] = "";
    inet_pton(family, address, &bytes);
    Built message(RTM_NEWNEIGH);
    auto* const header = static_cast<ndmsg*>(message.Extra(sizeof(ndmsg)));
    header->ndm_family = static_cast<unsigned char>(family);
    header->ndm_ifindex = static_cast<int>(index);
    header->ndm_state = NUD_REACHABLE;
    message.With(NDA_DST, {&bytes[0], family == AF_INET ? sizeof(in_addr) : sizeof(in6_addr)})
        .With(NDA_LLADDR, mac);
    FakeNetlink::Current().datagrams.push_back(message.Bytes());
}

const std::string kMac("\x00\x1B\xFF\x01\x02\x0A", 6);
const std::string kOtherMac("\x00\x1B\xFF\x01\x02\x0B", 6);
const unsigned int kLoopback = if_nametoindex("lo");

// What the source sends about the table as it is, without waiting for more.
std::vector<Message> Sent(const std::vector<Target>& targets) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        ADD_FAILURE() << "no pipe";
        return {};
    }
    const Descriptor reading(ends[0]);
    const pid_t pid = fork();  // the source gives up rights that the test goes on to need
    if (pid == 0) {
        Sender sender(ends[1]);
        Job job;
        job.targets = targets;
        job.request.timeout = std::chrono::seconds(0);
        try {
            RunNeighbours(job, sender);
        } catch (const std::exception&) {
            _exit(1);
        }
        _exit(0);
    }
    close(ends[1]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (WEXITSTATUS(status) != 0) {
        throw std::runtime_error("the source failed");
    }
    std::string text;
    std::array<char, 4096> piece{};
    for (ssize_t count = 0; (count = read(reading.Fd(), piece.data(), piece.size())) > 0;) {
        text.append(piece.data(), static_cast<std::size_t>(count));
    }
    std::vector<Message> messages;
    for (std::size_t end = 0; (end = text.find('\n')) != std::string::npos;
         text.erase(0, end + 1)) {
        if (auto message = DecodeMessage(text.substr(0, end))) {
            messages.push_back(std::move(*message));
        }
    }
    return messages;
}

std::vector<Sighting> Told(const std::vector<Target>& targets) {
    std::vector<Sighting> sightings;
    for (const Message& message : Sent(targets)) {
        if (const auto* told = std::get_if<SightingMessage>(&message)) {
            sightings.push_back(told->sighting);
        }
    }
    return sightings;
}

}  // namespace

TEST(Neighbours, NeighbourOfATargetsInterfaceIsTold) {
    const FakeNetlink::Scope scope;
    Tell("10.0.0.7", kMac, kLoopback);
    const auto told = Told({{"lo", "10.0.0.1"}});
    ASSERT_EQ(told.size(), 1U);
    EXPECT_EQ(told[0].source, SourceId::Neighbours);
    EXPECT_EQ(told[0].via, (Target{"lo", "10.0.0.1"}));
    EXPECT_EQ(told[0].device.ip, "10.0.0.7");
    EXPECT_EQ(told[0].device.mac, "00:1B:FF:01:02:0A");
}

TEST(Neighbours, Ipv6NeighbourHasItsZone) {
    const FakeNetlink::Scope scope;
    Tell("fe80::7", kMac, kLoopback);
    const auto told = Told({{"lo", "10.0.0.1"}});
    ASSERT_EQ(told.size(), 1U);
    EXPECT_EQ(told[0].device.ip, "");
    EXPECT_THAT(told[0].device.ipv6, testing::ElementsAre("fe80::7%lo"));
}

TEST(Neighbours, OtherInterfacesAreNotTold) {
    const FakeNetlink::Scope scope;
    Tell("10.0.0.7", kMac, kLoopback);
    EXPECT_TRUE(Told({{"no such one", "10.0.0.1"}}).empty());
}

TEST(Neighbours, WithoutTargetsAllAreTold) {
    const FakeNetlink::Scope scope;
    Tell("10.0.0.7", kMac, kLoopback);
    const auto told = Told({});
    ASSERT_EQ(told.size(), 1U);
    EXPECT_EQ(told[0].via, (Target{"lo", ""}));
}

TEST(Neighbours, EntryComesAgainOnlyWithAnotherMacAddress) {
    const FakeNetlink::Scope scope;
    Tell("10.0.0.7", kMac, kLoopback);
    Tell("10.0.0.7", kMac, kLoopback);
    Tell("10.0.0.7", kOtherMac, kLoopback);
    const auto told = Told({{"lo", "10.0.0.1"}});
    ASSERT_EQ(told.size(), 2U);
    EXPECT_EQ(told[1].device.mac, "00:1B:FF:01:02:0B");
}

TEST(Neighbours, EndOfItsTimeIsSaid) {
    const FakeNetlink::Scope scope;
    const auto sent = Sent({{"lo", "10.0.0.1"}});
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_TRUE(std::holds_alternative<DoneMessage>(sent[0]));
}

TEST(Neighbours, KernelThatRefusesIsAFailureOfTheSource) {
    const FakeNetlink::Scope scope;
    FakeNetlink::Current().openError = EPERM;
    EXPECT_THROW(Told({{"lo", "10.0.0.1"}}), std::exception);
}
