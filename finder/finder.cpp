#include "finder/finder.h"

#include <fmt/core.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <utility>

#include "finder/machine/clock.h"
#include "finder/machine/macmakers.h"
#include "finder/source/camerasearch.h"
#include "finder/source/explain.h"
#include "finder/source/searchprocess.h"
#include "finder/source/upnpsearch.h"

namespace Lanscout {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr int kTickMilliseconds = 100;
constexpr int kLastAnswersSeconds = 3;  // a camera search listens that long after its time
constexpr char kArping[] = "/usr/bin/arping";

struct Search {
    SearchProcess process;
    SearchReport report;
    bool ended = false;
    bool saidDone = false;
};

class Round {
public:
    Round(const Options& options, Signals& signals, RoundObserver& observer)
        : m_options(options), m_signals(signals), m_observer(observer) {}

    Report Run(const std::vector<Target>& targets);

private:
    void Start(const std::vector<Target>& targets);
    void StartOne(const Target& target, Protocol protocol, int number);
    void Step();
    void Read(Search& search);
    void Take(Search& search, const Message& message);
    void Take(Search& search, FoundMessage found);
    void Take(Search& search, const LogMessage& log);
    void Take(Search& search, const FailureMessage& failure);
    void End(Search& search);
    void EndAll(Outcome outcome);
    void Tell(Problem problem);
    void WarnOfMissingArping();
    double Elapsed() const;
    bool IsRunning() const;

    const Options& m_options;
    Signals& m_signals;
    RoundObserver& m_observer;
    SteadyClock::time_point m_start = SteadyClock::now();
    std::vector<Search> m_searches;
    DeviceTable m_table;
    MacMakers m_makers;
    bool m_full = false;
    Report m_report;
};

double Round::Elapsed() const {
    return std::chrono::duration<double>(SteadyClock::now() - m_start).count();
}

bool Round::IsRunning() const {
    return std::any_of(m_searches.begin(), m_searches.end(),
                       [](const Search& search) { return !search.ended; });
}

// A problem is told once, however many searches meet it.
void Round::Tell(Problem problem) {
    auto& problems = m_report.problems;
    if (std::find(problems.begin(), problems.end(), problem) == problems.end()) {
        m_observer.OnProblem(problem);
        problems.push_back(std::move(problem));
    }
}

void Round::WarnOfMissingArping() {
    if (m_options.onvif && access(kArping, X_OK) != 0) {
        Tell({Problem::Weight::Notice,
              {},
              "",
              fmt::format("{} is missing, so the MAC addresses of some cameras will be too",
                          kArping),
              "Install the package iputils-arping"});
    }
}

void Round::StartOne(const Target& target, Protocol protocol, int number) {
    const int seconds = m_options.timeoutSeconds;
    auto process = SearchProcess::Start([&](Sender& sender) {
        if (protocol == Protocol::Onvif) {
            RunOnvifSearch(target, seconds, sender);
        } else {
            RunUpnpSearch(target, seconds, number, sender);
        }
    });
    if (!process) {
        m_report.searches.push_back({target, protocol, Outcome::Failed});
        return Tell({Problem::Weight::Error, target, ProtocolText(protocol),
                     fmt::format("no process could be started: {}", std::strerror(errno)), ""});
    }
    m_searches.push_back({std::move(*process), {target, protocol, Outcome::Done}});
}

void Round::Start(const std::vector<Target>& targets) {
    int number = 0;
    for (const Target& target : targets) {
        if (m_options.onvif) {
            StartOne(target, Protocol::Onvif, number);
        }
        if (m_options.upnp) {
            StartOne(target, Protocol::Upnp, number);
        }
        ++number;
    }
}

void Round::Take(Search& search, FoundMessage found) {
    Device& device = found.device;
    if (!device.mac.empty()) {
        device.macMaker = m_makers.MakerOf(device.mac);
    }
    device.firstSeen = NowText();
    const DeviceTable::Result result = m_table.Add(device, search.report.target);
    if (result.change == DeviceTable::Change::Full) {
        if (!std::exchange(m_full, true)) {
            Tell({Problem::Weight::Notice,
                  {},
                  "",
                  fmt::format("more than {} devices answer; the others are left out",
                              DeviceTable::kMostDevices),
                  "Somebody may be flooding the network with forged answers"});
        }
    } else if (result.change != DeviceTable::Change::None) {
        m_observer.OnFound(m_table, result);
    }
}

void Round::Take(Search& search, const LogMessage& log) {
    m_observer.OnLibraryLine(log.level, log.line);
    if (auto problem = ExplainLogLine(search.report.target, log.line)) {
        search.report.outcome = Outcome::Failed;
        Tell(std::move(*problem));
    }
}

void Round::Take(Search& search, const FailureMessage& failure) {
    search.report.outcome = Outcome::Failed;
    Tell({Problem::Weight::Error, search.report.target, ProtocolText(search.report.protocol),
          failure.what, ""});
}

void Round::Take(Search& search, const Message& message) {
    if (const auto* found = std::get_if<FoundMessage>(&message)) {
        Take(search, *found);
    } else if (const auto* log = std::get_if<LogMessage>(&message)) {
        Take(search, *log);
    } else if (const auto* failure = std::get_if<FailureMessage>(&message)) {
        Take(search, *failure);
    } else {
        search.saidDone = true;
    }
}

void Round::Read(Search& search) {
    const bool more = search.process.ReadLines([&](std::string_view line) {
        if (const auto message = DecodeMessage(line)) {
            Take(search, *message);
        }
    });
    if (!more) {
        End(search);
    }
}

void Round::End(Search& search) {
    search.ended = true;
    const int signal = search.process.Join();
    if (search.saidDone || search.report.outcome != Outcome::Done) {
        return;
    }
    search.report.outcome = Outcome::Failed;
    Tell({Problem::Weight::Error, search.report.target, ProtocolText(search.report.protocol),
          signal == 0
              ? "the search ended unexpectedly"
              : fmt::format("the search was ended by signal {} ({})", signal, strsignal(signal)),
          "What it had found is kept"});
}

void Round::EndAll(Outcome outcome) {
    for (Search& search : m_searches) {
        if (search.ended) {
            continue;
        }
        search.process.Kill();
        search.ended = true;
        search.report.outcome = outcome;
        if (outcome == Outcome::CutShort) {
            Tell({Problem::Weight::Notice, search.report.target,
                  ProtocolText(search.report.protocol),
                  fmt::format("the search still ran after {} seconds and was ended",
                              m_options.maxSeconds),
                  "Give it longer with --max-time"});
        }
    }
}

void Round::Step() {
    std::vector<pollfd> entries{{m_signals.Fd(), POLLIN, 0}};
    std::vector<Search*> polled;
    for (Search& search : m_searches) {
        if (!search.ended) {
            entries.push_back({search.process.Fd(), POLLIN, 0});
            polled.push_back(&search);
        }
    }
    poll(entries.data(), entries.size(), kTickMilliseconds);
    m_signals.Take();
    if (m_signals.TakeResumed()) {
        m_observer.OnResumed();
    }
    for (std::size_t i = 0; i < polled.size(); ++i) {
        if (entries[i + 1].revents != 0) {
            Read(*polled[i]);
        }
    }
}

Report Round::Run(const std::vector<Target>& targets) {
    m_report.started = NowText();
    WarnOfMissingArping();
    Start(targets);
    const double expected = m_options.timeoutSeconds + kLastAnswersSeconds;
    while (IsRunning()) {
        Step();
        const auto running = std::count_if(m_searches.begin(), m_searches.end(),
                                           [](const Search& search) { return !search.ended; });
        m_observer.OnProgress(m_table, {Elapsed(), expected, static_cast<std::size_t>(running)});
        if (m_signals.Interrupted()) {
            EndAll(Outcome::Interrupted);
        } else if (Elapsed() > m_options.maxSeconds) {
            EndAll(Outcome::CutShort);
        }
    }
    for (const Search& search : m_searches) {
        m_report.searches.push_back(search.report);
    }
    m_report.finished = NowText();
    m_report.seconds = Elapsed();
    m_report.devices = m_table.Devices();
    return std::move(m_report);
}

}  // namespace

Report RunRound(const Options& options, const std::vector<Target>& targets, Signals& signals,
                RoundObserver& observer) {
    return Round(options, signals, observer).Run(targets);
}

}  // namespace Lanscout
