#include <fmt/format.h>
#include <libxml/parser.h>

#include <exception>
#include <string_view>

#include "tools/lanscout-sim/base/shown.h"
#include "tools/lanscout-sim/options.h"
#include "tools/lanscout-sim/record.h"
#include "tools/lanscout-sim/simulation.h"

namespace {

constexpr int kCannotRun = 3;

}  // namespace

int main(int argc, char** argv) try {
    xmlInitParser();
    if (argc > 1 && std::string_view(argv[1]) == "record") {
        return lansim::RunRecord(argc - 2, argv + 2);
    }
    const auto commandLine = lansim::ParseCommandLine(argc, argv);
    if (!commandLine.options) {
        return commandLine.exitStatus;
    }
    return lansim::RunSimulation(*commandLine.options);
} catch (const std::exception& error) {
    fmt::print(stderr, "lanscout-sim: {}\n", lansim::Shown(error.what()));
    return kCannotRun;
}
