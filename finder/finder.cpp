#include "finder/finder.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <deque>
#include <set>
#include <unordered_map>
#include <utility>

#include "finder/device/inventory.h"
#include "finder/foreignsubnets.h"
#include "finder/machine/clock.h"
#include "finder/machine/interfaces.h"
#include "finder/machine/macmakers.h"
#include "finder/source/sourceprocess.h"

namespace Lanscout {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kTick{50};

// A source ends by itself when the request's time is over. What still runs then waits for an answer
// that does not come.
constexpr milliseconds kLastAnswers{450};

// Working out who is who takes at most this share of the time, whatever a flood makes of the list.
constexpr int kSettleShare = 10;
constexpr milliseconds kShortSettle{30};  // what a large network takes without a flood

// Asks single addresses, or a broker: from no address of ours in particular.
bool SearchesFromNowhere(const Source& source, const Request& request) {
    return (source.id == SourceId::Probes && !request.to.empty()) || source.id == SourceId::Sites;
}

struct Running {
    SourceProcess process;
    const Source* source;
    Clock::time_point end;
    std::vector<SearchReport> reports;  // one a target
    bool ended = false;
    bool saidDone = false;
};

class Search {
public:
    Search(const Request& request, const Wake& wake, Observer& observer)
        : m_request(request), m_wake(wake), m_observer(observer) {}

    Report Run();

private:
    void PlanJobs();
    void StartWaiting();
    void StartOne(const Source& source, Job job);
    void Step();
    void Read(Running& one);
    void Take(Running& one, std::string_view line);
    void Take(Running& one, const SightingMessage& message);
    void Take(Running& one, const FailureMessage& failure);
    void Finish(Running& one);
    void EndOverdue();
    void EndAll(Outcome outcome);
    void Kill(Running& one);
    void Settle(bool all);
    void TellConflicts();
    void TellFull();
    void Tell(Problem problem);
    bool OthersDo(const SearchReport& failed) const;
    std::size_t RunningCount() const;
    double Elapsed() const;
    double Expected() const;

    const Request& m_request;
    const Wake& m_wake;
    Observer& m_observer;
    Clock::time_point m_start = Clock::now();
    Clock::time_point m_nextSettle = m_start;
    std::deque<std::pair<const Source*, Job>> m_waiting;
    std::size_t m_upnpJobs = 0;
    std::vector<Running> m_running;
    Inventory m_inventory{[](const std::string& mac) { return SharedMacMakers().MakerOf(mac); }};
    std::set<AddressConflict> m_toldConflicts;
    bool m_full = false;
    bool m_stopped = false;
    Report m_report;
};

double Search::Elapsed() const {
    return std::chrono::duration<double>(Clock::now() - m_start).count();
}

// UPnP searches that have to wait for others take their time after them.
double Search::Expected() const {
    const auto atOnce = static_cast<std::size_t>(std::max(m_request.atOnce, 1));
    const std::size_t turns = std::max<std::size_t>((m_upnpJobs + atOnce - 1) / atOnce, 1);
    return static_cast<double>(turns) * static_cast<double>(m_request.timeout.count());
}

std::size_t Search::RunningCount() const {
    return static_cast<std::size_t>(std::count_if(m_running.begin(), m_running.end(),
                                                  [](const Running& one) { return !one.ended; }));
}

void Search::Tell(Problem problem) {
    auto& problems = m_report.problems;
    if (std::find(problems.begin(), problems.end(), problem) == problems.end()) {
        m_observer.OnProblem(problem);
        problems.push_back(std::move(problem));
    }
}

void Search::PlanJobs() {
    const bool onlyTo = (!m_request.to.empty() || m_request.sites) &&
                        m_request.interfaces.empty() && m_request.addresses.empty();
    Choice choice;
    if (!onlyTo) {
        choice = ChooseTargets(ReadLocalAddresses(), m_request.interfaces, m_request.addresses);
    }
    for (Problem& problem : choice.problems) {
        Tell(std::move(problem));
    }
    for (const Source& source : Sources()) {
        if (!source.wanted(m_request)) {
            continue;
        }
        if (source.processForEachTarget) {
            int number = 0;
            for (const Target& target : choice.targets) {
                m_waiting.push_back({&source, {{target}, number++, m_request}});
                m_upnpJobs += source.work == Work::Upnp ? 1 : 0;
            }
        } else if (!choice.targets.empty() || SearchesFromNowhere(source, m_request)) {
            const bool isSites = source.id == SourceId::Sites;
            m_waiting.push_back(
                {&source, {isSites ? std::vector<Target>{} : choice.targets, 0, m_request}});
        }
    }
}

void Search::StartWaiting() {
    auto upnp = std::count_if(m_running.begin(), m_running.end(), [](const Running& one) {
        return !one.ended && one.source->work == Work::Upnp;
    });
    for (auto waiting = m_waiting.begin(); waiting != m_waiting.end();) {
        const bool isUpnp = waiting->first->work == Work::Upnp;
        if (isUpnp && upnp >= m_request.atOnce) {
            ++waiting;
            continue;
        }
        upnp += isUpnp ? 1 : 0;
        StartOne(*waiting->first, std::move(waiting->second));
        waiting = m_waiting.erase(waiting);
    }
}

void Search::StartOne(const Source& source, Job job) {
    std::vector<SearchReport> reports;
    for (const Target& target : job.targets) {
        reports.push_back({target, source.id, source.work, Outcome::Done});
    }
    if (SearchesFromNowhere(source, m_request)) {
        reports.push_back({{}, source.id, source.work, Outcome::Done});
    }
    auto process =
        SourceProcess::Start([&source, &job](Sender& sender) { source.run(job, sender); });
    if (!process) {
        const int error = errno;
        for (SearchReport& report : reports) {
            report.outcome = Outcome::Failed;
        }
        m_report.searches.insert(m_report.searches.end(), reports.begin(), reports.end());
        return Tell({Problem::Weight::Error,
                     {},
                     ProtocolName(source.work),
                     fmt::format("no process could be started: {}", std::strerror(error)),
                     ""});
    }
    m_running.push_back({std::move(*process), &source,
                         Clock::now() + m_request.timeout + kLastAnswers, std::move(reports)});
}

void Search::TellFull() {
    if (!std::exchange(m_full, true)) {
        Tell({Problem::Weight::Notice,
              {},
              "",
              fmt::format("more than {} devices answer; the others are left out",
                          Inventory::kMostDevices),
              "Somebody may be flooding the network with forged answers"});
    }
}

void Search::Take(Running& one, const SightingMessage& message) {
    Sighting sighting = message.sighting;
    sighting.source = one.source->id;  // whatever it says of itself
    if ((one.source->id == SourceId::Sites) == sighting.device.site.empty()) {
        return;
    }
    if (!m_inventory.Add(sighting, std::time(nullptr))) {
        TellFull();
    }
}

// Another source that may still do the same work at the same address.
bool Search::OthersDo(const SearchReport& failed) const {
    for (const Running& one : m_running) {
        for (const SearchReport& report : one.reports) {
            if (report.work == failed.work && report.source != failed.source &&
                report.target == failed.target && report.outcome != Outcome::Failed) {
                return true;
            }
        }
    }
    return false;
}

void Search::Take(Running& one, const FailureMessage& failure) {
    bool compensated = one.source->work == Work::Macs;
    for (SearchReport& report : one.reports) {
        if (failure.target.address.empty() || report.target == failure.target) {
            report.outcome = Outcome::Failed;
            compensated = compensated || OthersDo(report);
        }
    }
    Tell({compensated ? Problem::Weight::Notice : Problem::Weight::Error, failure.target,
          ProtocolName(one.source->work),
          compensated && one.source->work != Work::Macs ? failure.what + "; searching beside it"
                                                        : failure.what,
          compensated ? "" : failure.remedy});
}

void Search::Take(Running& one, std::string_view line) {
    const std::optional<Message> message = DecodeMessage(line);
    if (!message) {
        return;
    }
    if (const auto* sighting = std::get_if<SightingMessage>(&*message)) {
        Take(one, *sighting);
    } else if (const auto* log = std::get_if<LogMessage>(&*message)) {
        m_observer.OnLogLine(log->level, log->text);
    } else if (const auto* failure = std::get_if<FailureMessage>(&*message)) {
        Take(one, *failure);
    } else if (const auto* notice = std::get_if<NoticeMessage>(&*message)) {
        Tell({Problem::Weight::Notice, notice->target, ProtocolName(one.source->work), notice->what,
              notice->remedy});
    } else {
        one.saidDone = true;
    }
}

void Search::Read(Running& one) {
    if (!one.process.ReadLines([&](std::string_view line) { Take(one, line); })) {
        Finish(one);
    }
}

void Search::Finish(Running& one) {
    one.ended = true;
    const int signal = one.process.Join();
    const bool failed =
        std::all_of(one.reports.begin(), one.reports.end(),
                    [](const SearchReport& report) { return report.outcome == Outcome::Failed; });
    if (one.saidDone || (failed && !one.reports.empty())) {
        return;
    }
    Take(one, FailureMessage{one.reports.size() == 1 ? one.reports.front().target : Target{},
                             signal == 0 ? "the search ended unexpectedly"
                                         : fmt::format("the search was ended by signal {} ({})",
                                                       signal, strsignal(signal)),
                             "What it had found is kept"});
}

void Search::Kill(Running& one) {
    one.process.Kill();
    one.process.DrainLines([&](std::string_view line) { Take(one, line); });
    one.ended = true;
}

void Search::EndOverdue() {
    for (Running& one : m_running) {
        if (!one.ended && Clock::now() > one.end) {
            Kill(one);
        }
    }
}

void Search::EndAll(Outcome outcome) {
    m_stopped = true;
    m_waiting.clear();
    for (Running& one : m_running) {
        if (one.ended) {
            continue;
        }
        Kill(one);
        for (SearchReport& report : one.reports) {
            if (report.outcome == Outcome::Done) {
                report.outcome = outcome;
            }
        }
        if (outcome == Outcome::CutShort) {
            Tell({Problem::Weight::Notice,
                  {},
                  ProtocolName(one.source->work),
                  fmt::format("the search still ran after {} seconds and was ended",
                              m_request.maxTime.count()),
                  "Give it longer with --max-time"});
        }
    }
}

void Search::TellConflicts() {
    for (const AddressConflict& conflict : m_inventory.Conflicts()) {
        if (m_toldConflicts.insert(conflict).second) {
            Tell({Problem::Weight::Notice,
                  {},
                  "",
                  fmt::format("{}{}{} is the address of {} devices: {}", conflict.site,
                              conflict.site.empty() ? "" : ": ", conflict.ip, conflict.macs.size(),
                              fmt::join(conflict.macs, ", ")),
                  "Disconnect all but one of them, give that one another address, and go on with "
                  "the next"});
        }
    }
}

void Search::Settle(bool all) {
    const auto start = Clock::now();
    if (!all && start < m_nextSettle) {
        return;
    }
    for (const Inventory::News& news : all ? m_inventory.SettleAll() : m_inventory.Settle()) {
        DeviceEvent event;
        event.number = news.number;
        switch (news.change) {
            case Inventory::Change::Added:
                event.what = DeviceEvent::What::Found;
                event.device = m_inventory.DeviceNumbered(news.number);
                break;
            case Inventory::Change::Updated:
                event.what = DeviceEvent::What::Updated;
                event.device = m_inventory.DeviceNumbered(news.number);
                break;
            case Inventory::Change::Withdrawn:
                event.what = DeviceEvent::What::Withdrawn;
                event.device = news.former;
                break;
        }
        m_observer.OnDevice(event);
    }
    TellConflicts();
    const auto end = Clock::now();
    m_nextSettle = end - start < kShortSettle ? end : end + (end - start) * kSettleShare;
}

void Search::Step() {
    std::vector<pollfd> entries{{m_wake.fd, POLLIN, 0}};
    std::vector<Running*> polled;
    for (Running& one : m_running) {
        if (!one.ended) {
            entries.push_back({one.process.Fd(), POLLIN, 0});
            polled.push_back(&one);
        }
    }
    poll(entries.data(), entries.size(), static_cast<int>(kTick.count()));
    for (std::size_t i = 0; i < polled.size(); ++i) {
        if (entries[i + 1].revents != 0) {
            Read(*polled[i]);
        }
    }
    if (entries[0].revents != 0 && m_wake.wantsToEnd && m_wake.wantsToEnd()) {
        EndAll(Outcome::Interrupted);
    }
}

Report Search::Run() {
    m_report.started = NowText();
    PlanJobs();
    auto nextTick = m_start;
    for (StartWaiting(); RunningCount() > 0; StartWaiting()) {
        Step();
        EndOverdue();
        if (Clock::now() - m_start > m_request.maxTime && RunningCount() > 0) {
            EndAll(Outcome::CutShort);
        }
        if (const auto now = Clock::now(); now >= nextTick) {
            nextTick = now + kTick;
            Settle(false);
            m_observer.OnProgress(m_inventory.Devices(), {Elapsed(), Expected(), RunningCount()});
        }
    }
    Settle(true);
    for (Problem& problem : ForeignSubnets(m_inventory.Devices())) {
        Tell(std::move(problem));
    }
    m_observer.OnProgress(m_inventory.Devices(), {Elapsed(), Expected(), 0});
    for (const Running& one : m_running) {
        if (one.source->work != Work::Macs) {
            m_report.searches.insert(m_report.searches.end(), one.reports.begin(),
                                     one.reports.end());
        }
    }
    m_report.finished = NowText();
    m_report.seconds = Elapsed();
    m_report.devices.assign(m_inventory.Devices().begin(), m_inventory.Devices().end());
    SortDevices(m_report.devices, Fields().front());
    return std::move(m_report);
}

}  // namespace

Report RunSearch(const Request& request, const Wake& wake, Observer& observer) {
    return Search(request, wake, observer).Run();
}

}  // namespace Lanscout
