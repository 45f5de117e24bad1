#include "tools/lanscout/task/watch.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>

#include "finder/device/fields.h"
#include "finder/machine/clock.h"
#include "tools/lanscout/output/reporter.h"
#include "tools/lanscout/output/summary.h"
#include "tools/lanscout/task/exitstatus.h"
#include "tools/lanscout/task/lastingproblems.h"
#include "tools/lanscout/task/statefile.h"

namespace Lanscout {
namespace {

using TimePoint = std::chrono::steady_clock::time_point;
constexpr std::chrono::milliseconds kTick{1000};

Problem TooMany() {
    Problem problem;
    problem.weight = Problem::Weight::Notice;
    problem.what =
        fmt::format("more than {} devices; the others are not watched", WatchList::kMostDevices);
    return problem;
}

std::vector<ListedDevice> Listed(const WatchList& list) {
    std::vector<ListedDevice> devices;
    for (const WatchList::Entry& entry : list.Entries()) {
        devices.push_back({entry.device, entry.lastSeen, entry.gone});
    }
    return devices;
}

class Watch : public Observer {
public:
    Watch(const WatchTask& task, Surroundings& world, WatchList& list)
        : m_task(task),
          m_world(world),
          m_list(list),
          m_wake(WakeOf(world.signals, world.console)),
          m_reporter({world.console, task.output, world.files.write}, Live::Counted),
          m_problems(m_reporter),
          m_state(task.state, world) {}

    std::optional<int> Run() {
        m_world.service.Ready();
        if (m_task.publish) {
            m_publisher.emplace(*m_task.publish,
                                [this](const Problem& problem) { m_reporter.OnProblem(problem); });
        }
        bool readAgain = false;
        while (!m_wake.wantsToEnd() && !readAgain) {
            const TimePoint start = m_world.now();
            Round();
            readAgain = WaitUntil(start + m_task.interval);
        }
        m_world.console.Erase();
        m_state.KeepAtLast(m_list);
        if (readAgain) {
            return std::nullopt;
        }
        if (m_list.Count() > 0) {
            return kExitFound;
        }
        return m_searched ? kExitNothingFound : kExitCouldNotSearch;
    }

    void OnDevice(const DeviceEvent& event) override { m_reporter.OnDevice(event); }
    void OnProblem(const Problem& problem) override { m_problems.Take(problem); }
    void OnLogLine(int level, std::string_view text) override { m_reporter.OnLogLine(level, text); }
    void OnProgress(std::span<const Device> devices, const Progress& progress) override {
        m_world.service.Alive();
        m_reporter.OnProgress(devices, progress);
    }

private:
    void Round() {
        const Field& order = *FieldNamed(m_task.output.sort);
        m_problems.NextRound();
        Report report = m_world.search(m_task.request, m_wake, *this);
        m_searched = m_searched || report.HasSearched();
        SortDevices(report.devices, order);
        for (const DeviceEvent& event : m_list.Take(report)) {
            m_reporter.Tell(event);
            if (m_publisher) {
                m_publisher->OnEvent(event);
            }
        }
        if (const std::time_t finished = TimeFrom(report.finished); finished >= 0) {
            m_list.Forget(TimeText(finished - m_task.forget.count()));
        }
        if (m_publisher) {
            m_publisher->EndRound(report, Listed(m_list));
        }
        if (m_list.IsFull()) {
            m_problems.Take(TooMany());
        }
        m_state.Keep(m_list);
        report.devices = m_list.Devices();
        SortDevices(report.devices, order);
        m_reporter.EndRound(report);
        m_world.service.Status(Counted(m_list.Count(), "device") + " there");
    }

    // Whether the options shall be read again.
    bool WaitUntil(TimePoint next) {
        while (!m_wake.wantsToEnd()) {
            if (m_world.signals.TakeHangup()) {
                return true;
            }
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - m_world.now());
            if (left.count() <= 0) {
                return false;
            }
            m_world.service.Alive();
            if (m_publisher) {
                m_publisher->TellProblems();
            }
            DrawWaiting(left);
            m_world.signals.WaitFor(std::min(left, kTick));
        }
        return false;
    }

    void DrawWaiting(std::chrono::milliseconds left) {
        Console& console = m_world.console;
        if (console.CanDraw()) {
            const std::string line =
                fmt::format("{} there; next search in {} s", Counted(m_list.Count(), "device"),
                            std::chrono::ceil<std::chrono::seconds>(left).count());
            console.Draw({FitWidth(line, console.DrawWidth())});
        }
    }

    const WatchTask& m_task;  // NOLINT: these live longer
    Surroundings& m_world;    // NOLINT
    WatchList& m_list;        // NOLINT
    Wake m_wake;
    Reporter m_reporter;
    LastingProblems m_problems;
    StateFile m_state;
    std::optional<SitePublisher> m_publisher;
    bool m_searched = false;
};

}  // namespace

WatchList ReadWatchList(const WatchTask& task, Surroundings& world) {
    return WatchList(StateFile(task.state, world).Read());
}

std::optional<int> RunWatchTask(const WatchTask& task, Surroundings& world, WatchList& list) {
    return Watch(task, world, list).Run();
}

}  // namespace Lanscout
