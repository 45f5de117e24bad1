// What a process that reads strangers' bytes gives up before the first of them.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace Lanscout {

// What it goes on to need, beside the descriptors that it has.
struct Freedom {
    bool sockets = false;      // makes and binds further sockets
    bool connections = false;  // connects and listens
    bool threads = false;
    std::chrono::seconds time{0};  // for which it runs
};

// Gives up for good what is not needed: new privileges, programs, processes, files, memory and CPU
// time without end. What is refused from then on fails with an error, and ends nothing. Returns, in
// words, what this kernel has no means for. To be called while the process has one thread.
std::vector<std::string> GiveUpRights(const Freedom& freedom);

}  // namespace Lanscout
