#include <fmt/format.h>
#include <libxml/parser.h>

#include <exception>

#include "tools/lanscout-sim/options.h"
#include "tools/lanscout-sim/simulation.h"

namespace {

constexpr int kCannotRun = 3;

}  // namespace

int main(int argc, char** argv) try {
    const auto commandLine = lansim::ParseCommandLine(argc, argv);
    if (!commandLine.options) {
        return commandLine.exitStatus;
    }
    xmlInitParser();
    return lansim::RunSimulation(*commandLine.options);
} catch (const std::exception& error) {
    fmt::print(stderr, "lanscout-sim: {}\n", error.what());
    return kCannotRun;
}
