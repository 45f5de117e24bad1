#include "tools/lanscout/task/command.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>

#include "finder/device/columns.h"
#include "finder/device/comparison.h"
#include "finder/machine/files.h"
#include "finder/machine/interfaces.h"
#include "tools/lanscout/output/console.h"
#include "tools/lanscout/output/formats.h"
#include "tools/lanscout/output/page.h"
#include "tools/lanscout/output/progressline.h"
#include "tools/lanscout/output/reporter.h"
#include "tools/lanscout/task/watchlist.h"

namespace Lanscout {
namespace {

int ExitStatus(const Report& report) {
    if (!report.devices.empty()) {
        return kExitFound;
    }
    return report.HasSearched() ? kExitNothingFound : kExitCouldNotSearch;
}

void WritePage(const Options& options, const Report& report) {
    if (!options.html.empty()) {
        WriteWholeFile(options.html, PageDocument(report));
    }
}

// A result that could not be written is as good as none.
void CheckOutput(const Console& console) {
    if (console.OutputError() != 0) {
        throw std::runtime_error(
            fmt::format("cannot write the result: {}", std::strerror(console.OutputError())));
    }
}

Report SearchOnce(const Options& options, Signals& signals, Reporter& reporter) {
    const Choice choice =
        ChooseTargets(ReadLocalAddresses(), options.interfaces, options.addresses);
    for (const Problem& problem : choice.problems) {
        reporter.OnProblem(problem);
    }
    Report report = RunRound(options, choice.targets, signals, reporter);
    report.problems.insert(report.problems.begin(), choice.problems.begin(), choice.problems.end());
    SortDevices(report.devices, options.sort);
    return report;
}

int RunSearch(const Options& options, Console& console) {
    const auto reporter = MakeReporter(options, console);
    Signals signals;
    const Report report = SearchOnce(options, signals, *reporter);
    reporter->End(report);
    CheckOutput(console);
    WritePage(options, report);
    return ExitStatus(report);
}

std::vector<Device> ReadEarlierResult(const std::string& path) {
    auto read = DevicesFromDocument(ReadWholeFile(path, kLongestDocumentBytes));
    if (const std::string* const wrong = std::get_if<std::string>(&read)) {
        throw std::runtime_error(fmt::format("cannot use {}: {}", path, *wrong));
    }
    return std::get<std::vector<Device>>(std::move(read));
}

std::string ComparisonSummary(const Comparison& comparison) {
    return comparison.IsSame()
               ? "The same as before"
               : fmt::format("{} missing, {} new, {} changed", comparison.missing.size(),
                             comparison.added.size(), comparison.changed.size());
}

void WriteComparison(const Options& options, Console& console, const Report& report,
                     const Comparison& comparison) {
    if (options.format == Format::Json) {
        Json document = ReportToJson(report);
        document["compare"] = ComparisonToJson(comparison);
        console.Output(DumpDocument(document));
        return;
    }
    console.Output(ComparisonText(comparison, options.format == Format::Table));
    if (!options.quiet) {
        console.Say(ComparisonSummary(comparison) + "; now " + SummaryText(report));
    }
}

int RunComparison(const Options& options, const std::vector<Device>& before, Console& console) {
    const auto reporter = options.format == Format::Table ? MakeReporter(options, console)
                                                          : MakeProgressReporter(options, console);
    Signals signals;
    const Report report = SearchOnce(options, signals, *reporter);
    if (!report.HasSearched()) {
        return kExitCouldNotSearch;
    }
    if (!report.IsComplete()) {
        reporter->OnProblem({Problem::Weight::Notice,
                             {},
                             "",
                             "the search was not complete, so that devices may be called missing "
                             "that are there",
                             ""});
    }
    const Comparison comparison = Compare(before, report.devices);
    WriteComparison(options, console, report, comparison);
    CheckOutput(console);
    WritePage(options, report);
    return comparison.IsSame() ? kExitFound : kExitDiffers;
}

// Tells a lasting problem once, and again when it has come back.
class WatchReporter : public RoundObserver {
public:
    explicit WatchReporter(Reporter& reporter) : m_reporter(reporter) {}

    void OnFound(const DeviceTable& /*table*/, DeviceTable::Result /*result*/) override {}
    void OnLibraryLine(int level, std::string_view line) override {
        m_reporter.OnLibraryLine(level, line);
    }
    void OnResumed() override { m_reporter.OnResumed(); }
    void OnProgress(const DeviceTable& table, const Progress& progress) override {
        m_reporter.OnProgress(table, progress);
    }
    void OnProblem(const Problem& problem) override {
        if (std::find(m_former.begin(), m_former.end(), problem) == m_former.end()) {
            m_reporter.OnProblem(problem);
        }
        m_present.push_back(problem);
    }

    void NextRound() {
        m_former = std::move(m_present);
        m_present.clear();
    }

private:
    Reporter& m_reporter;
    std::vector<Problem> m_former;
    std::vector<Problem> m_present;
};

class Watch {
public:
    Watch(const Options& options, Console& console)
        : m_options(options),
          m_console(console),
          m_reporter(MakeProgressReporter(options, console)),
          m_problems(*m_reporter) {}

    int Run() {
        while (!m_signals.Interrupted()) {
            const auto start = Clock::now();
            Round();
            CheckOutput(m_console);
            WaitUntil(start + std::chrono::seconds(*m_options.watchSeconds));
        }
        m_console.Erase();
        if (!m_list.Devices().empty()) {
            return kExitFound;
        }
        return m_searched ? kExitNothingFound : kExitCouldNotSearch;
    }

private:
    using Clock = std::chrono::steady_clock;

    void Round() {
        m_problems.NextRound();
        const Choice choice =
            ChooseTargets(ReadLocalAddresses(), m_options.interfaces, m_options.addresses);
        for (const Problem& problem : choice.problems) {
            m_problems.OnProblem(problem);
        }
        Report report = RunRound(m_options, choice.targets, m_signals, m_problems);
        m_searched = m_searched || report.HasSearched();
        SortDevices(report.devices, m_options.sort);
        for (const WatchEvent& event : m_list.Take(report)) {
            Write(event);
        }
        if (m_list.IsFull()) {
            m_problems.OnProblem({Problem::Weight::Notice,
                                  {},
                                  "",
                                  fmt::format("more than {} devices; the others are not watched",
                                              WatchList::kMostDevices),
                                  ""});
        }
        report.devices = m_list.Devices();
        SortDevices(report.devices, m_options.sort);
        WritePage(m_options, report);
    }

    void Write(const WatchEvent& event) {
        switch (m_options.format) {
            case Format::Jsonl:
                m_console.Output(DumpLine(WatchEventToJson(event)));
                break;
            case Format::Plain:
                m_console.Output(WatchEventPlain(event) + "\n");
                break;
            default:
                m_console.Output(WatchEventText(event) + "\n");
        }
    }

    void WaitUntil(Clock::time_point next) {
        while (!m_signals.Interrupted()) {
            const double left = std::chrono::duration<double>(next - Clock::now()).count();
            if (left <= 0) {
                return;
            }
            if (m_console.CanDraw()) {
                const std::string line =
                    fmt::format("{} there; next search in {:.0f} s",
                                Counted(m_list.Devices().size(), "device"), std::ceil(left));
                m_console.Draw({FitWidth(line, m_console.DrawWidth())});
            }
            m_signals.WaitFor(static_cast<long>(std::min(left, 1.0) * 1000) + 1);
        }
    }

    const Options& m_options;
    Console& m_console;
    std::unique_ptr<Reporter> m_reporter;
    WatchReporter m_problems;
    Signals m_signals;
    WatchList m_list;
    bool m_searched = false;
};

}  // namespace

int RunCommand(const Options& given) {
    Options options = given;
    std::vector<Device> before;
    try {
        if (!options.html.empty()) {
            CheckWritable(options.html);
        }
        if (!options.compare.empty()) {
            before = ReadEarlierResult(options.compare);
        }
    } catch (const std::runtime_error& wrong) {
        Console(options).Say(std::string("lanscout: ") + ForDisplay(wrong.what()));
        return kExitWrongUse;
    }
    Console console(options);
    if (options.format == Format::Auto) {
        options.format = console.IsTerminal() ? Format::Table : Format::Plain;
    }
    if (options.watchSeconds) {
        return Watch(options, console).Run();
    }
    return options.compare.empty() ? RunSearch(options, console)
                                   : RunComparison(options, before, console);
}

}  // namespace Lanscout
