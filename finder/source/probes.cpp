#include "finder/source/probes.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <deque>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "finder/machine/interfaces.h"
#include "finder/source/datagrams.h"
#include "finder/source/explain.h"
#include "finder/source/onvifdevice.h"
#include "finder/source/probeschedule.h"
#include "finder/source/replymemory.h"
#include "finder/source/subnet.h"
#include "finder/text/addresstext.h"

namespace Lanscout {
namespace {

using Clock = std::chrono::steady_clock;

// WS-Discovery (April 2005), 2.4.
constexpr std::uint32_t kGroup = 0xEFFFFFFA;  // 239.255.255.250

// Room for the replies of a large network that come at once; of all sockets together, as a flood
// can fill it.
constexpr int kAllBuffersBytes = 64 * 1024 * 1024;
constexpr int kMostBufferBytes = 16 * 1024 * 1024;

constexpr std::size_t kMostAtOnce = 128;  // so that one flooded socket does not keep the others
constexpr std::size_t kMostWaitingBytes = std::size_t{8} * 1024 * 1024;
constexpr int kParsedAtOnce = 16;                       // before the sockets are looked at again
constexpr std::chrono::milliseconds kLastReplies{200};  // what waits to be read when time is over

// One socket, and the address that it searches from.
struct Post {
    Target target;
    Descriptor socket;
    std::vector<Subnet> subnets;
};

// A reply that has not been read.
struct Waiting {
    std::size_t post;
    Correspondent sender;
    std::string key;  // of the sender
    std::string text;
};

class Prober {
public:
    Prober(const Job& job, Sender& sender)
        : m_sender(sender), m_end(Clock::now() + job.request.timeout) {
        Open(job);
    }

    void Run();

private:
    void Open(const Job& job);
    void SendDue(ProbeSchedule& schedule);
    void Send(const ProbeSchedule::Due& due);
    void Receive(int timeoutMilliseconds);
    void Keep(std::size_t post, const Correspondent& sender, std::string_view text);
    void ReadWaiting();
    void ReadOne(const Waiting& reply);
    void Tell(FailureMessage failure);

    Sender& m_sender;
    Clock::time_point m_end;
    std::vector<Post> m_posts;
    std::vector<pollfd> m_polled;
    std::vector<Subnet> m_subnets;  // of all interfaces
    std::set<Target> m_failed;
    DatagramReader m_reader;
    ReplyMemory m_memory;
    std::deque<Waiting> m_waiting;
    std::size_t m_waitingBytes = 0;
};

std::vector<Subnet> SubnetsOf(const std::vector<LocalAddress>& local,
                              const std::string& interface) {
    std::vector<Subnet> subnets;
    for (const LocalAddress& one : local) {
        const auto subnet = SubnetFrom(one.network);
        if (subnet && (interface.empty() || one.interface == interface)) {
            subnets.push_back(*subnet);
        }
    }
    return subnets;
}

int BufferBytes(std::size_t sockets) {
    return std::min(kAllBuffersBytes / std::max(static_cast<int>(sockets), 1), kMostBufferBytes);
}

void Prober::Open(const Job& job) {
    const std::vector<LocalAddress> local = ReadLocalAddresses();
    m_subnets = SubnetsOf(local, "");
    for (const Target& target : job.targets) {
        const int port = job.request.sourcePort;
        OpenedSocket opened = OpenSocketAt(target.address, port, BufferBytes(job.targets.size()));
        if (opened.socket) {
            m_polled.push_back({opened.socket.Fd(), POLLIN, 0});
            m_posts.push_back(
                {target, std::move(opened.socket), SubnetsOf(local, target.interface)});
        } else {
            Tell(ExplainBind(target, opened.error, port));
        }
    }
}

void Prober::Run() {
    ProbeSchedule schedule(m_posts.size(), Clock::now());
    for (auto now = Clock::now(); now < m_end; now = Clock::now()) {
        SendDue(schedule);
        const auto wait = std::chrono::ceil<std::chrono::milliseconds>(
            std::min(schedule.Next(), m_end) - Clock::now());
        Receive(m_waiting.empty() ? std::max(static_cast<int>(wait.count()), 0) : 0);
        ReadWaiting();
    }
    const auto last = m_end + kLastReplies;
    do {
        Receive(0);
        ReadWaiting();
    } while (!m_waiting.empty() && Clock::now() < last);
    m_sender.Send(DoneMessage{});
}

void Prober::SendDue(ProbeSchedule& schedule) {
    const auto now = Clock::now();
    while (const auto due = schedule.Take(now)) {
        Send(*due);
    }
}

void Prober::Send(const ProbeSchedule::Due& due) {
    const Post& post = m_posts[due.target];
    const int error = SendDatagram(post.socket.Fd(), ProbeMessage(due.type, due.messageId),
                                   Ipv4Endpoint(kGroup, kDiscoveryPort));
    // A full queue of the device is nothing lasting: all is sent again.
    if (error != 0 && error != EAGAIN && error != ENOBUFS) {
        Tell(ExplainSend(post.target, error));
    }
}

void Prober::Receive(int timeoutMilliseconds) {
    if (poll(m_polled.data(), m_polled.size(), timeoutMilliseconds) <= 0) {
        return;
    }
    for (std::size_t post = 0; post < m_polled.size(); ++post) {
        if (m_polled[post].revents != 0 && m_waitingBytes < kMostWaitingBytes) {
            m_reader.Read(m_polled[post].fd, kMostAtOnce,
                          [&](const Correspondent& sender, std::string_view text) {
                              Keep(post, sender, text);
                          });
        }
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
    for (int i = 0; i < kParsedAtOnce && !m_waiting.empty(); ++i) {
        ReadOne(m_waiting.front());
        m_waitingBytes -= m_waiting.front().text.size();
        m_waiting.pop_front();
    }
}

Reach ReachOf(const std::vector<Subnet>& subnets, const std::string& address) {
    const auto value = Ipv4Value(address);
    const bool local = std::any_of(subnets.begin(), subnets.end(), [&](const Subnet& subnet) {
        return value && subnet.Contains(*value);
    });
    return local ? Reach::Local : Reach::Foreign;
}

void Prober::ReadOne(const Waiting& reply) {
    auto matches = ReadReply(reply.text);
    const Post& post = m_posts[reply.post];
    if (!matches) {
        return;
    }
    const bool isFirst = m_memory.NoteListed(reply.key);
    if (matches->empty() && isFirst) {
        matches->emplace_back();  // who answers is there, whatever else it says
    }
    const std::string address = reply.sender.Text();
    const ReplySender from{address, ReachOf(post.subnets, address), m_subnets};
    for (const ProbeMatch& match : *matches) {
        m_sender.Send(SightingMessage{{SourceId::Probes, post.target, OnvifDevice(match, from)}});
    }
}

void Prober::Tell(FailureMessage failure) {
    if (m_failed.insert(failure.target).second) {
        m_sender.Send(std::move(failure));
    }
}

}  // namespace

void RunProbes(const Job& job, Sender& sender) {
    Prober(job, sender).Run();
}

}  // namespace Lanscout
