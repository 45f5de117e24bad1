// The program that runs inside the simulated network.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace lansim {

// Who runs a program: a line of the table of users.
struct User {
    std::string name;
    std::string home;
    uid_t uid = 0;
    gid_t gid = 0;
};
// By name or by number; nothing when there is no such user.
std::optional<User> FindUser(const std::string& nameOrNumber);

// The program that runs inside the simulated network, ended with the simulator.
class Command {
public:
    // Starts the program with LANSCOUT_SIM_ADDRESS set, as the given user where there is one.
    // Throws SetupError when it cannot run.
    Command(const std::vector<std::string>& arguments, const std::string& address,
            const std::optional<User>& user = std::nullopt);
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;
    // Kills what still runs.
    ~Command();

    // The exit status as a shell reports it (128 + signal), once the program has ended.
    std::optional<int> ExitStatus();
    void Signal(int number) const;

private:
    pid_t m_pid = -1;
    std::optional<int> m_status;
};

}  // namespace lansim
