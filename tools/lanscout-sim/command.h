// The program that runs inside the simulated network.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace lansim {

// The program that runs inside the simulated network, ended with the simulator.
class Command {
public:
    // Starts the program with LANSCOUT_SIM_ADDRESS set. Throws SetupError when it cannot run.
    Command(const std::vector<std::string>& arguments, const std::string& address);
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;
    // A program that does not end when asked to is killed after a few seconds.
    ~Command();

    // The exit status as a shell reports it (128 + signal), once the program has ended.
    std::optional<int> ExitStatus();
    void Signal(int number) const;

private:
    pid_t m_pid = -1;
    std::optional<int> m_status;
};

}  // namespace lansim
