#include <unistd.h>

#include <clocale>
#include <cstring>
#include <exception>
#include <iostream>

#include "tools/lanscout/columns.h"
#include "tools/lanscout/interfaces.h"
#include "tools/lanscout/reporter.h"

namespace LanscoutTool {
namespace {

int ExitStatus(const Report& report) {
    if (!report.devices.empty()) {
        return kExitFound;
    }
    return report.HasSearched() ? kExitNothingFound : kExitCouldNotSearch;
}

int Search(Options options) {
    Console console(options);
    if (options.format == Format::Auto) {
        options.format = console.IsTerminal() ? Format::Table : Format::Plain;
    }
    const auto reporter = MakeReporter(options, console);
    const Choice choice =
        ChooseTargets(ReadLocalAddresses(), options.interfaces, options.addresses);
    for (const Problem& problem : choice.problems) {
        reporter->OnProblem(problem);
    }
    Signals signals;
    Report report = RunRound(options, choice.targets, signals, *reporter);
    report.problems.insert(report.problems.begin(), choice.problems.begin(), choice.problems.end());
    SortDevices(report.devices, options.sort);
    reporter->End(report);
    if (console.OutputError() != 0) {
        console.Say(std::string("lanscout: cannot write the result: ") +
                    std::strerror(console.OutputError()));
        return kExitCouldNotSearch;
    }
    return ExitStatus(report);
}

}  // namespace
}  // namespace LanscoutTool

int main(int argc, char** argv) {
    using namespace LanscoutTool;
    try {
        std::setlocale(LC_CTYPE, "");
        const auto parsed = ParseArguments(argc, argv);
        if (const int* const status = std::get_if<int>(&parsed)) {
            return *status;
        }
        return Search(std::get<Options>(parsed));
    } catch (const std::exception& failure) {
        std::cerr << "lanscout: " << failure.what() << "\n";
        return kExitCouldNotSearch;
    }
}
