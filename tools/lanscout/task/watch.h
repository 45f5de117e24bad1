// --watch: searches again and again, and tells what comes and goes.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "tools/lanscout/publish/publisher.h"
#include "tools/lanscout/task/surroundings.h"
#include "tools/lanscout/task/watchlist.h"

namespace Lanscout {

struct WatchTask {
    Request request;
    OutputSettings output;
    std::chrono::seconds interval{30};  // from the beginning of a search to that of the next
    std::string state;                  // a file that keeps the list; empty: none
    std::optional<PublishSettings> publish;
    std::chrono::seconds forget{std::chrono::days(30)};  // who is gone for longer is forgotten
};

// The list that the task's state file has. Throws std::runtime_error when it is none of ours.
WatchList ReadWatchList(const WatchTask& task, Surroundings& world);

// Runs until the user wants an end, and returns the exit status; nothing when a hangup asks to read
// the options again. Throws std::runtime_error when the result cannot be written.
std::optional<int> RunWatchTask(const WatchTask& task, Surroundings& world, WatchList& list);

}  // namespace Lanscout
