// --compare: one search, compared with an earlier result.
#pragma once

#include <string>

#include "tools/lanscout/task/surroundings.h"

namespace Lanscout {

struct CompareTask {
    Request request;
    OutputSettings output;
    std::vector<Device> before;
};

// The devices of a file that --json wrote. Throws std::runtime_error with the reason.
std::vector<Device> ReadEarlierResult(const std::string& path, const Files& files);

// The exit status. Throws std::runtime_error when the result cannot be written.
int RunCompareTask(const CompareTask& task, Surroundings& world);

}  // namespace Lanscout
