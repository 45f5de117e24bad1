// One round: every chosen address searched at once, each way in a process of its own.
#pragma once

#include <string_view>
#include <vector>

#include "finder/device/inventory.h"
#include "finder/report.h"
#include "tools/lanscout/options.h"
#include "tools/lanscout/task/signals.h"

namespace Lanscout {

// Hears of a round while it runs.
class RoundObserver {
public:
    virtual ~RoundObserver() = default;
    virtual void OnFound(const DeviceTable& table, DeviceTable::Result result) = 0;
    virtual void OnProblem(const Problem& problem) = 0;
    virtual void OnLibraryLine(int level, std::string_view line) = 0;
    virtual void OnResumed() = 0;  // after the program was stopped
    virtual void OnProgress(const DeviceTable& table, const Progress& progress) = 0;
};

// Runs a round to its end, or until the user wants one. The devices come in the order of finding.
Report RunRound(const Options& options, const std::vector<Target>& targets, Signals& signals,
                RoundObserver& observer);

}  // namespace Lanscout
