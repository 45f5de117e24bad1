#include "finder/source/sites.h"

#include <fmt/core.h>

#include <ctime>
#include <deque>
#include <future>
#include <memory>
#include <set>
#include <thread>

#include "finder/broker/brokerconnection.h"
#include "finder/broker/topics.h"
#include "finder/source/sitebook.h"

namespace Lanscout {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Sites whose devices are asked for at a time: a broker drops what does not fit into its queue, and
// a slow line needs several.
constexpr std::size_t kSitesAtOnce = 4;

// What has not come when everything was answered, and then nothing for that long, does not come.
constexpr milliseconds kQuietTime{1500};

// A subscription to nothing: when it is answered, all that was subscribed to before it has come
// (of a broker that works in order).
constexpr char kNothing[] = "lanscout/-/-";

class SiteReader : public BrokerUser {
public:
    SiteReader(const BrokerSettings& broker, Clock::time_point end, Sender& sender)
        : m_broker(broker),
          m_end(end),
          m_sender(sender),
          m_connection(broker, "", nullptr, *this) {}

    void Run();

    void OnConnected() override;
    void OnSubscribed(int number, bool granted) override;
    void OnMessage(std::string_view topic, std::string_view payload) override;

private:
    enum class Phase { Connecting, FindingSites, ReadingDevices, Waiting };

    void Subscribe(const std::string& pattern);
    void ReadNextSites();
    bool IsDone() const;
    void TellEnd(bool open);

    const BrokerSettings m_broker;
    const Clock::time_point m_end;
    Sender& m_sender;  // NOLINT: lives longer
    BrokerConnection m_connection;
    Phase m_phase = Phase::Connecting;
    std::set<int> m_asked;  // subscriptions that have not been answered
    bool m_refused = false;
    std::deque<std::string> m_unread;  // sites
    SiteBook m_book;
    Clock::time_point m_lastMessage;
};

void SiteReader::OnConnected() {
    m_phase = Phase::FindingSites;
    for (const char* part : {"status", "info", "round"}) {
        Subscribe(SiteTopic("+", part));
    }
    Subscribe(kNothing);
}

void SiteReader::Subscribe(const std::string& pattern) {
    m_asked.insert(m_connection.Subscribe(pattern));
}

void SiteReader::ReadNextSites() {
    while (!m_unread.empty() && m_asked.size() < kSitesAtOnce) {
        Subscribe(SiteTopic(m_unread.front(), "device/+"));
        m_unread.pop_front();
        if (m_unread.empty()) {
            Subscribe(kNothing);
        }
    }
}

void SiteReader::OnSubscribed(int number, bool granted) {
    m_asked.erase(number);
    m_refused = m_refused || (!granted && m_phase == Phase::FindingSites && !m_asked.empty());
    if (m_phase == Phase::FindingSites && m_asked.empty()) {
        m_phase = Phase::ReadingDevices;
        const std::vector<std::string> sites = m_book.Sites();
        m_unread.assign(sites.begin(), sites.end());
    }
    if (m_phase == Phase::ReadingDevices) {
        ReadNextSites();
        if (m_asked.empty()) {
            m_phase = Phase::Waiting;
        }
    }
    m_lastMessage = Clock::now();
}

void SiteReader::OnMessage(std::string_view topic, std::string_view payload) {
    m_lastMessage = Clock::now();
    if (std::optional<Device> device = m_book.Take(topic, payload)) {
        m_sender.Send(SightingMessage{{SourceId::Sites, {}, std::move(*device)}});
    }
}

bool SiteReader::IsDone() const {
    return m_phase == Phase::Waiting &&
           (m_book.IsComplete() || Clock::now() - m_lastMessage > kQuietTime);
}

void SiteReader::TellEnd(bool open) {
    if (!open) {
        return m_sender.Send(FailureMessage{{}, m_connection.Reason(), m_connection.Remedy()});
    }
    if (m_refused) {
        return m_sender.Send(FailureMessage{
            {},
            fmt::format("{} does not let this user read lanscout/#", BrokerText(m_broker)),
            "See the broker's list of who may read what"});
    }
    if (m_phase != Phase::Waiting) {
        return m_sender.Send(
            FailureMessage{{},
                           fmt::format("{} has not told everything in time", BrokerText(m_broker)),
                           "Give it longer with --timeout"});
    }
    for (std::string& problem : m_book.Problems(std::time(nullptr))) {
        m_sender.Send(NoticeMessage{{}, std::move(problem), ""});
    }
    m_connection.Close();
}

void SiteReader::Run() {
    bool open = m_connection.Open();
    while (open && !IsDone() && Clock::now() < m_end) {
        open = m_connection.Run(-1, milliseconds(100));
    }
    TellEnd(open);
}

}  // namespace

void RunSites(const Job& job, Sender& sender) {
    const BrokerSettings broker = *job.request.sites;
    const Clock::time_point end = Clock::now() + job.request.timeout;
    // A name or a TCP connection may take longer than there is time, and cannot be given up; the
    // process that ends takes the thread with it.
    std::packaged_task<void()> read(
        [broker, end, &sender] { SiteReader(broker, end, sender).Run(); });
    std::future<void> done = read.get_future();
    std::thread(std::move(read)).detach();
    if (done.wait_until(end + milliseconds(200)) == std::future_status::ready) {
        done.get();
    } else {
        sender.Send(FailureMessage{{}, fmt::format("{} does not answer", BrokerText(broker)), ""});
    }
    sender.Send(DoneMessage{});
}

}  // namespace Lanscout
