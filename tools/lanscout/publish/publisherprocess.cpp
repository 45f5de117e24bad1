#include "tools/lanscout/publish/publisherprocess.h"

#include <fmt/core.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <map>
#include <random>
#include <thread>

#include "finder/broker/brokerconnection.h"
#include "finder/broker/topics.h"
#include "finder/machine/descriptor.h"
#include "tools/lanscout/publish/backoff.h"
#include "tools/lanscout/publish/outbox.h"

namespace Lanscout {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Letters on their way at a time. A broker takes them in turn, and a slow line needs several.
constexpr std::size_t kMostUnderway = 32;

// What is on its way when the watch ends is waited for that long.
constexpr milliseconds kFarewellTime{2000};

// A connection that broke sooner has not worked: two lanscouts with one site name throw each other
// out.
constexpr milliseconds kSteadyTime{30000};

constexpr std::size_t kLongestLineBytes = std::size_t{1024} * 1024;

// Wakes the thread that talks to the broker.
class Bell {
public:
    void Ring() const { eventfd_write(m_fd.Fd(), 1); }
    void Hush() const {
        eventfd_t count = 0;
        eventfd_read(m_fd.Fd(), &count);
    }
    int Fd() const { return m_fd.Fd(); }

private:
    Descriptor m_fd{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
};

class Publisher : public BrokerUser {
public:
    Publisher(const BrokerSettings& broker, const std::string& site, Sender& sender)
        : m_broker(broker), m_site(site), m_sender(sender) {}

    // The thread that talks to the broker.
    void Talk();

    // Of another thread.
    void Put(Letter letter) {
        m_outbox.Put(std::move(letter));
        m_bell.Ring();
    }
    void End() {
        m_ending = true;
        m_bell.Ring();
    }

    void OnConnected() override;
    void OnPublished(int number) override { m_delivered.push_back(number); }

private:
    void TalkOnce();
    bool SendWaiting(BrokerConnection& connection);
    void TakeDelivered();
    void SayGoodbye(BrokerConnection& connection);
    void Pause(milliseconds time) const;
    void TellFailure(const BrokerConnection& connection);

    const BrokerSettings& m_broker;  // NOLINT: these live longer
    const std::string& m_site;       // NOLINT
    Sender& m_sender;                // NOLINT
    Outbox m_outbox;
    Bell m_bell;
    std::atomic<bool> m_ending{false};
    Backoff m_backoff{std::random_device()()};
    std::map<int, Outbox::Sending> m_underway;  // by number
    std::vector<int> m_delivered;               // numbers, perhaps before Publish has returned them
    Clock::time_point m_upSince;
    std::string m_told;  // the failure that was told last; empty: none since it last worked
};

void Publisher::OnConnected() {
    m_upSince = Clock::now();
    if (!m_told.empty()) {
        m_told.clear();
        m_sender.Send(
            NoticeMessage{{},
                          fmt::format("{} is there again; what has changed meanwhile is published",
                                      BrokerText(m_broker)),
                          ""});
    }
}

void Publisher::TellFailure(const BrokerConnection& connection) {
    if (!connection.Reason().empty() && connection.Reason() != m_told) {
        m_told = connection.Reason();
        m_sender.Send(NoticeMessage{{}, connection.Reason(), connection.Remedy()});
    }
}

// The broker may answer before the number is known here.
void Publisher::TakeDelivered() {
    for (const int number : std::exchange(m_delivered, {})) {
        if (const auto sent = m_underway.find(number); sent != m_underway.end()) {
            m_outbox.Delivered(sent->second);
            m_underway.erase(sent);
        }
    }
}

bool Publisher::SendWaiting(BrokerConnection& connection) {
    TakeDelivered();
    while (m_underway.size() < kMostUnderway) {
        std::optional<Outbox::Sending> next = m_outbox.Next();
        if (!next) {
            break;
        }
        const Letter& letter = next->letter;
        const int number = connection.Publish(letter.topic, letter.payload, letter.retain);
        if (number == 0) {
            return false;
        }
        m_underway.emplace(number, std::move(*next));
    }
    return true;
}

void Publisher::SayGoodbye(BrokerConnection& connection) {
    const auto end = Clock::now() + kFarewellTime;
    bool said = false;
    while (Clock::now() < end) {
        if (connection.IsUp() && !SendWaiting(connection)) {
            return;
        }
        if (connection.IsUp() && m_underway.empty() && m_outbox.Waiting() == 0) {
            if (said) {
                break;
            }
            said = true;
            m_outbox.Put({SiteTopic(m_site, "status"), "offline", true, ""});
            continue;
        }
        if (!connection.Run(-1, milliseconds(100))) {
            return;
        }
    }
    connection.Close();
}

void Publisher::TalkOnce() {
    const LastWill will{SiteTopic(m_site, "status"), "offline"};
    BrokerConnection connection(m_broker, "lanscout-" + m_site, &will, *this);
    m_underway.clear();
    m_delivered.clear();
    m_outbox.StartAgain();
    m_outbox.Put({will.topic, "online", true, ""});
    m_upSince = {};
    bool open = connection.Open();
    while (open && !m_ending) {
        m_bell.Hush();
        open = (!connection.IsUp() || SendWaiting(connection)) &&
               connection.Run(m_bell.Fd(), milliseconds(500));
    }
    if (open) {
        return SayGoodbye(connection);
    }
    if (m_upSince != Clock::time_point() && Clock::now() - m_upSince > kSteadyTime) {
        m_backoff.Reset();
    }
    TellFailure(connection);
}

void Publisher::Pause(milliseconds time) const {
    const auto end = Clock::now() + time;
    while (!m_ending) {
        const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
        if (left.count() <= 0) {
            return;
        }
        pollfd entry{m_bell.Fd(), POLLIN, 0};
        poll(&entry, 1, static_cast<int>(left.count()));
        m_bell.Hush();
    }
}

void Publisher::Talk() {
    do {  // a watch that ends at once has something to say too
        TalkOnce();
        Pause(m_backoff.Next());
    } while (!m_ending);
}

// Takes what the watch writes, at once whatever the broker does, so that the watch never waits.
void TakeLetters(int fd, Publisher& publisher) {
    std::string pending;
    std::array<char, 65536> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled next
    while (pending.size() < kLongestLineBytes) {
        const ssize_t count = read(fd, buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return;
        }
        pending.append(buffer.data(), static_cast<std::size_t>(count));
        std::size_t start = 0;
        for (std::size_t end = pending.find('\n'); end != std::string::npos;
             end = pending.find('\n', start)) {
            if (auto letter = DecodeLetter(std::string_view(pending).substr(start, end - start))) {
                publisher.Put(std::move(*letter));
            }
            start = end + 1;
        }
        pending.erase(0, start);
    }
}

}  // namespace

void RunPublisher(const BrokerSettings& broker, const std::string& site, Sender& sender) {
    Publisher publisher(broker, site, sender);
    std::thread talk([&] { publisher.Talk(); });
    TakeLetters(sender.Fd(), publisher);
    publisher.End();
    talk.join();
}

}  // namespace Lanscout
