#include "tools/lanscout/task/search.h"

#include "finder/device/fields.h"
#include "tools/lanscout/output/reporter.h"
#include "tools/lanscout/task/exitstatus.h"

namespace Lanscout {

int RunSearchTask(const SearchTask& task, Surroundings& world) {
    Reporter reporter({world.console, task.output, world.files.write}, Live::All);
    Report report = world.search(task.request, WakeOf(world.signals, world.console), reporter);
    SortDevices(report.devices, *FieldNamed(task.output.sort));
    reporter.EndSearch(report);
    if (!report.devices.empty()) {
        return kExitFound;
    }
    return report.HasSearched() ? kExitNothingFound : kExitCouldNotSearch;
}

}  // namespace Lanscout
