// Picks the task that the options ask for, and gives it what it needs of this machine.
#pragma once

#include <functional>
#include <optional>

#include "tools/lanscout/options.h"
#include "tools/lanscout/task/surroundings.h"

namespace Lanscout {

// The parts of a task's surroundings that do not depend on the options.
struct Machine {
    Terminal& terminal;
    Environment environment;
    Signals& signals;
    Service& service;
    Files files;
    std::function<Report(const Request&, const Wake&, Observer&)> search;
    std::function<std::chrono::steady_clock::time_point()> now;
};

// The exit status. `readAgain` reads the options anew for a watch that was told to; nothing when
// they are wrong, which has been explained.
int RunCommand(Options options, const Machine& machine,
               const std::function<std::optional<Options>()>& readAgain);

}  // namespace Lanscout
