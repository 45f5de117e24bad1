#include "finder/source/probes.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <deque>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "finder/machine/interfaces.h"
#include "finder/machine/neighbourtable.h"
#include "finder/source/confine.h"
#include "finder/source/datagrams.h"
#include "finder/source/explain.h"
#include "finder/source/neighbourasker.h"
#include "finder/source/onvifdevice.h"
#include "finder/source/probemessage.h"
#include "finder/source/probeposts.h"
#include "finder/source/probeschedule.h"
#include "finder/source/replymemory.h"
#include "finder/source/unicastfailures.h"
#include "finder/source/unicastplan.h"
#include "finder/text/addresstext.h"

namespace Lanscout {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostAtOnce = 128;  // so that one flooded socket does not keep the others
constexpr std::size_t kMostWaitingBytes = std::size_t{8} * 1024 * 1024;
constexpr int kReadAtOnce = 16;                         // before the sockets are looked at again
constexpr std::chrono::milliseconds kLastReplies{200};  // what waits to be read when time is over

// Replies that come one after the other are taken together where the buffers have room for what
// comes meanwhile, even for a thousand at once: waking up for each costs more than reading it.
constexpr std::chrono::milliseconds kGather{4};
constexpr int kRoomyBufferBytes = 4 * 1024 * 1024;

// A reply that has not been read.
struct Waiting {
    std::size_t post;
    Correspondent sender;
    std::string key;  // of the sender
    std::string text;
};

class Prober {
public:
    Prober(const Job& job, Sender& sender);
    void Run();

private:
    void SendDue();
    void SendToGroup(const ProbeSchedule::Due& due);
    void SendToSingle(const UnicastPlan::Due& due);
    void SendToNeighbour(const NeighbourAsker::Due& due);
    Clock::time_point NextSend() const;
    void Gather() const;
    void Receive(int timeoutMilliseconds);
    void Keep(std::size_t post, const Correspondent& sender, std::string_view text);
    void ReadNeighbours();
    void ReadWaiting();
    void ReadOne(const Waiting& reply);
    Target ViaOf(const ProbePost& post, std::uint32_t sender) const;
    void Tell(const FailureMessage& failure);

    Sender& m_sender;
    Clock::time_point m_start = Clock::now();
    Clock::time_point m_end;
    std::vector<LocalAddress> m_local = ReadLocalAddresses();
    std::vector<Subnet> m_subnets = SubnetsOf(m_local, "");
    std::set<Target> m_failed;
    std::vector<ProbePost> m_posts;
    std::vector<pollfd> m_polled;  // of the posts, and the last of the table of neighbours
    ProbeSchedule m_schedule;
    UnicastPlan m_plan;
    UnicastFailures m_singleFailures;
    std::optional<NeighbourTable> m_neighbours;
    NeighbourAsker m_asker;
    MessageIds m_ids;
    DatagramReader m_reader;
    ReplyMemory m_memory;
    std::deque<Waiting> m_waiting;
    std::size_t m_waitingBytes = 0;
    bool m_roomy = false;  // the buffers
    Clock::time_point m_lastRead{};
};

std::size_t GroupCount(const std::vector<ProbePost>& posts) {
    return static_cast<std::size_t>(std::count_if(
        posts.begin(), posts.end(), [](const ProbePost& post) { return post.group.length != 0; }));
}

std::span<const AddressRange> RangesFor(const Request& request,
                                        const std::vector<ProbePost>& posts) {
    const bool open = !posts.empty() && posts.back().group.length == 0;
    return open ? std::span(request.to) : std::span<const AddressRange>();
}

// A full queue of the device is nothing lasting: all is sent again.
bool IsLasting(int error) {
    return error != 0 && error != EAGAIN && error != ENOBUFS;
}

Prober::Prober(const Job& job, Sender& sender)
    : m_sender(sender),
      m_end(m_start + job.request.timeout),
      m_posts(OpenProbePosts(job, m_local, [&](const FailureMessage& failure) { Tell(failure); })),
      m_schedule(GroupCount(m_posts), m_start),
      m_plan(RangesFor(job.request, m_posts), m_subnets, job.request.rate, m_start),
      m_asker(m_start, NeighbourTableRoom()) {
    for (const ProbePost& post : m_posts) {
        m_polled.push_back({post.socket.Fd(), POLLIN, 0});
    }
    m_roomy = std::all_of(m_posts.begin(), m_posts.end(), [](const ProbePost& post) {
        return BufferBytesOf(post.socket.Fd()) >= kRoomyBufferBytes;
    });
    try {
        m_neighbours.emplace();
        m_polled.push_back({m_neighbours->Fd(), POLLIN, 0});
    } catch (const std::system_error&) {
        m_neighbours.reset();  // without it everybody is asked once more
    }
}

void Prober::Run() {
    for (auto now = Clock::now(); now < m_end; now = Clock::now()) {
        SendDue();
        Gather();
        const auto wait = std::chrono::ceil<std::chrono::milliseconds>(std::min(NextSend(), m_end) -
                                                                       Clock::now());
        Receive(m_waiting.empty() ? std::max(static_cast<int>(wait.count()), 0) : 0);
        ReadWaiting();
    }
    const auto last = m_end + kLastReplies;
    do {
        Receive(0);
        ReadWaiting();
    } while (!m_waiting.empty() && Clock::now() < last);
    m_singleFailures.Tell(m_plan.AddressCount(), GroupCount(m_posts) == 0, m_sender);
    m_sender.Send(DoneMessage{});
}

Clock::time_point Prober::NextSend() const {
    return std::min({m_schedule.Next(), m_plan.Next(), m_asker.Next()});
}

void Prober::Gather() const {
    if (m_roomy && m_waiting.empty()) {
        std::this_thread::sleep_until(std::min(m_lastRead + kGather, m_end));
    }
}

void Prober::SendDue() {
    const auto now = Clock::now();
    while (const auto due = m_schedule.Take(now)) {
        SendToGroup(*due);
    }
    while (const auto due = m_plan.Take(now)) {
        SendToSingle(*due);
    }
    while (const auto due = m_asker.Take(now)) {
        SendToNeighbour(*due);
    }
}

void Prober::SendToGroup(const ProbeSchedule::Due& due) {
    const ProbePost& post = m_posts[due.target];
    const int error =
        SendDatagram(post.socket.Fd(), ProbeMessage(due.type, due.messageId), post.group);
    if (IsLasting(error)) {
        Tell(ExplainSend(post.target, error));
    }
}

void Prober::SendToSingle(const UnicastPlan::Due& due) {
    const int error = SendDatagram(m_posts.back().socket.Fd(), ProbeMessage(due.type, m_ids.Next()),
                                   Ipv4Endpoint(due.address, kDiscoveryPort));
    if (IsLasting(error)) {
        m_singleFailures.Note(due.address, error);
    }
}

void Prober::SendToNeighbour(const NeighbourAsker::Due& due) {
    SendDatagram(m_posts[due.post].socket.Fd(),
                 ProbeMessage(ProbeType::NetworkVideoTransmitter, m_ids.Next()),
                 Ipv4Endpoint(Ipv4Value(due.address).value_or(0), kDiscoveryPort));
}

void Prober::Receive(int timeoutMilliseconds) {
    if (poll(m_polled.data(), m_polled.size(), timeoutMilliseconds) <= 0) {
        return;
    }
    if (m_neighbours && m_polled.back().revents != 0) {
        ReadNeighbours();
    }
    for (std::size_t post = 0; post < m_posts.size(); ++post) {
        if (m_polled[post].revents != 0 && m_waitingBytes < kMostWaitingBytes) {
            m_lastRead = Clock::now();
            m_reader.Read(m_polled[post].fd, kMostAtOnce,
                          [&](const Correspondent& sender, std::string_view text) {
                              Keep(post, sender, text);
                          });
        }
    }
}

void Prober::ReadNeighbours() {
    try {
        m_neighbours->Read([&](const Neighbour& neighbour) {
            if (IsIpv4Text(neighbour.address)) {
                m_asker.NoteKnown(neighbour.address);
            }
        });
    } catch (const std::system_error&) {
        m_neighbours.reset();
        m_polled.pop_back();
    }
}

void Prober::Keep(std::size_t post, const Correspondent& sender, std::string_view text) {
    // What two interfaces hear of one sender is told of both.
    std::string key = sender.Key() + static_cast<char>(post) + static_cast<char>(post >> 8);
    if (!text.empty() && m_memory.IsNews(key, text)) {
        m_waiting.push_back({post, sender, std::move(key), std::string(text)});
        m_waitingBytes += text.size();
    }
}

void Prober::ReadWaiting() {
    for (int i = 0; i < kReadAtOnce && !m_waiting.empty(); ++i) {
        ReadOne(m_waiting.front());
        m_waitingBytes -= m_waiting.front().text.size();
        m_waiting.pop_front();
    }
}

bool IsInOneOf(const std::vector<Subnet>& subnets, std::uint32_t address) {
    return std::any_of(subnets.begin(), subnets.end(),
                       [&](const Subnet& subnet) { return subnet.Contains(address); });
}

void Prober::ReadOne(const Waiting& reply) {
    auto matches = ReadReply(reply.text);
    if (!matches) {
        return;
    }
    const bool isFirst = m_memory.NoteListed(reply.key);
    if (matches->empty() && isFirst) {
        matches->emplace_back();  // who answers is there, whatever else it says
    }
    const ProbePost& post = m_posts[reply.post];
    const std::string address = reply.sender.Text();
    const auto value = Ipv4Value(address);
    const bool local = value && IsInOneOf(post.subnets, *value);
    if (value) {
        m_plan.NoteAnswer(*value);
    }
    if (local) {
        m_asker.NoteHeard(reply.post, address);
    }
    const ReplySender from{address, local ? Reach::Local : post.elsewhere, m_subnets};
    const Target via = value ? ViaOf(post, *value) : post.target;
    for (const ProbeMatch& match : *matches) {
        m_sender.Send(SightingMessage{{SourceId::Probes, via, OnvifDevice(match, from)}});
    }
}

// Who was asked at its own address may be in a subnet of ours all the same.
Target Prober::ViaOf(const ProbePost& post, std::uint32_t sender) const {
    if (post.group.length != 0) {
        return post.target;
    }
    const auto found = std::find_if(m_local.begin(), m_local.end(), [&](const LocalAddress& one) {
        const auto subnet = SubnetFrom(one.network);
        return subnet && subnet->Contains(sender);
    });
    return found == m_local.end() ? Target() : Target{found->interface, found->address};
}

void Prober::Tell(const FailureMessage& failure) {
    if (m_failed.insert(failure.target).second) {
        m_sender.Send(failure);
    }
}

}  // namespace

void RunProbes(const Job& job, Sender& sender) {
    Prober prober(job, sender);
    ConfineSource({.sockets = true, .time = job.request.timeout}, sender);
    prober.Run();
}

}  // namespace Lanscout
