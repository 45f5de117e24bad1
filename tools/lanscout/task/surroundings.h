// What the tasks need of the world around them. Tests put their own in its place.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "finder/finder.h"
#include "tools/lanscout/output/outputs.h"
#include "tools/lanscout/task/service.h"
#include "tools/lanscout/task/signals.h"

namespace Lanscout {

struct Files {
    std::function<std::string(const std::string& path, std::size_t mostBytes)> read;
    std::function<bool(const std::string& path)> exists;
    std::function<void(const std::string& path)> checkWritable;
    WriteFile write;
};

struct Surroundings {
    Console& console;
    Signals& signals;
    Service& service;
    Files files;
    std::function<Report(const Request&, const Wake&, Observer&)> search;
    std::function<std::chrono::steady_clock::time_point()> now;
};

// The user's files; a FIFO that nobody reads is waited for until `wake` says that the user wants an
// end.
Files SystemFiles(const Wake& wake);

// What a search asks: whether signals want it to end. A program that was stopped has the shell's
// text below its block when it goes on.
Wake WakeOf(Signals& signals, Console& console);

}  // namespace Lanscout
