#include "tools/lanscout/task/compare.h"

#include <fmt/core.h>

#include <stdexcept>
#include <utility>
#include <variant>

#include "finder/device/comparison.h"
#include "finder/device/fields.h"
#include "tools/lanscout/output/reporter.h"
#include "tools/lanscout/task/exitstatus.h"

namespace Lanscout {
namespace {

// An error, for what is written below it may be wrong.
Problem NotComplete() {
    Problem problem;
    problem.weight = Problem::Weight::Error;
    problem.what =
        "the search was not complete, so that devices may be called missing that are there";
    return problem;
}

}  // namespace

std::vector<Device> ReadEarlierResult(const std::string& path, const Files& files) {
    auto read = DevicesFromDocument(files.read(path, kLongestDocumentBytes));
    if (const std::string* const wrong = std::get_if<std::string>(&read)) {
        throw std::runtime_error(fmt::format("cannot use {}: {}", path, *wrong));
    }
    return std::get<std::vector<Device>>(std::move(read));
}

int RunCompareTask(const CompareTask& task, Surroundings& world) {
    Reporter reporter({world.console, task.output, world.files.write}, Live::Drawn);
    Report report = world.search(task.request, WakeOf(world.signals, world.console), reporter);
    if (!report.HasSearched()) {
        return kExitCouldNotSearch;
    }
    if (!report.IsComplete()) {
        reporter.OnProblem(NotComplete());
    }
    SortDevices(report.devices, *FieldNamed(task.output.sort));
    const Comparison comparison = Compare(task.before, report.devices);
    reporter.EndComparison(report, comparison);
    return comparison.IsSame() ? kExitFound : kExitDiffers;
}

}  // namespace Lanscout
