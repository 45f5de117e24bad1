// What the user gets to see of a round, while it runs and at its end.
#pragma once

#include <memory>

#include "finder/finder.h"
#include "tools/lanscout/output/console.h"

namespace Lanscout {

// Problems, log lines and a progress line are the same for every format; the formats differ in what
// they write when.
class Reporter : public RoundObserver {
public:
    Reporter(const Options& options, Console& console) : m_options(options), m_console(console) {}

    void OnFound(const DeviceTable& /*table*/, DeviceTable::Result /*result*/) override {}
    void OnProblem(const Problem& problem) override;
    void OnLibraryLine(int level, std::string_view line) override;
    void OnResumed() override { m_console.Forget(); }
    void OnProgress(const DeviceTable& table, const Progress& progress) override;

    // The round is over; its devices are in the order of --sort.
    virtual void End(const Report& report) = 0;

protected:
    // Lines to draw above the progress line, `height` at most.
    virtual std::vector<std::string> BlockLines(const DeviceTable& /*table*/, int /*height*/) {
        return {};
    }

    const Options& m_options;  // NOLINT: lives as long as the program
    Console& m_console;        // NOLINT
};

// For options.format, which is not Auto.
std::unique_ptr<Reporter> MakeReporter(const Options& options, Console& console);

// Shows progress and problems, and leaves the result to the caller.
std::unique_ptr<Reporter> MakeProgressReporter(const Options& options, Console& console);

// "12 devices (10 cameras) on eth0 (192.168.1.2) in 8.1 s"
std::string SummaryText(const Report& report);

}  // namespace Lanscout
