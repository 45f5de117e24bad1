// The command line.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "tools/lanscout-sim/base/misbehaviour.h"
#include "tools/lanscout-sim/command.h"
#include "tools/lanscout-sim/network/address.h"
#include "tools/lanscout-sim/population.h"

namespace lansim {

enum class Mode { Automatic, Namespace, Loopback };

struct Options {
    Mode mode = Mode::Automatic;
    std::size_t cameras = 0;
    std::size_t upnpDevices = 0;
    std::size_t foreignCameras = 0;
    Ipv6Use ipv6 = Ipv6Use::None;
    std::uint64_t seed = 1;
    std::string scenarioFile;
    std::vector<MisbehaviourShare> shares;
    double probeLossPercent = 0;
    double replyLossPercent = 0;
    std::chrono::milliseconds maxDelay{500};
    bool isLenient = false;
    std::vector<unsigned> shapes;  // of the generated cameras; none: all
    std::string netns;
    std::optional<Subnet> network;
    std::string tap = "sim0";
    std::string bridge;
    std::string captureFile;
    std::string statsFile;
    std::string devicesFile;
    std::string controlFile;
    std::optional<std::chrono::milliseconds> duration;
    std::optional<int> readyFd;
    std::optional<User> user;  // who runs the command
    std::vector<std::string> command;
};

// What to do with a command line: run with the options, or end at once with the status, the
// text having been printed.
struct CommandLine {
    std::optional<Options> options;
    int exitStatus = 0;
};
CommandLine ParseCommandLine(int argc, const char* const* argv);

}  // namespace lansim
