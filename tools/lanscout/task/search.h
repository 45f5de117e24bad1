// One search, its result shown.
#pragma once

#include "tools/lanscout/task/surroundings.h"

namespace Lanscout {

struct SearchTask {
    Request request;
    OutputSettings output;
};

// The exit status. Throws std::runtime_error when the result cannot be written.
int RunSearchTask(const SearchTask& task, Surroundings& world);

}  // namespace Lanscout
