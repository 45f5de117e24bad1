// What the LAN tests' programs say to pytest: one JSON object a line, each with the seconds since
// the program's first.
#pragma once

#include <chrono>
#include <cstdio>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>

inline double Seconds() {
    using std::chrono::steady_clock;
    static const steady_clock::time_point start = steady_clock::now();
    return std::chrono::duration<double>(steady_clock::now() - start).count();
}

// One whole line in one call: events come from the libraries' threads, too.
inline void Print(nlohmann::json event) {
    using nlohmann::json;
    event["seconds"] = Seconds();
    const std::string line = event.dump(-1, ' ', true, json::error_handler_t::replace) + "\n";
    static std::mutex lock;
    const std::lock_guard guard(lock);
    fputs(line.c_str(), stdout);
    fflush(stdout);
}
