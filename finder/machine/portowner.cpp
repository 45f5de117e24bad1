#include "finder/machine/portowner.h"

#include <arpa/inet.h>
#include <fmt/core.h>
#include <pwd.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <sstream>
#include <system_error>

namespace Lanscout {
namespace {

namespace fs = std::filesystem;

struct SocketEntry {
    unsigned int uid = 0;
    std::string inode;
};

// The kernel writes the address as the hexadecimal value of its bytes in host order.
std::string Ipv4Hex(const std::string& address) {
    in_addr binary{};
    inet_pton(AF_INET, address.c_str(), &binary);
    return fmt::format("{:08X}", binary.s_addr);
}

bool IsWildcard(const std::string& hex) {
    return std::all_of(hex.begin(), hex.end(), [](char c) { return c == '0'; });
}

bool Holds(const std::string& local, const std::string& address, const std::string& port) {
    const auto colon = local.find(':');
    if (colon == std::string::npos || local.substr(colon + 1) != port) {
        return false;
    }
    const std::string host = local.substr(0, colon);
    return host == address || IsWildcard(host) || IsWildcard(address);
}

std::optional<SocketEntry> FindSocket(const fs::path& table, const std::string& address,
                                      const std::string& port) {
    std::ifstream file(table);
    std::string line;
    std::getline(file, line);
    while (std::getline(file, line)) {
        std::istringstream fields(line);
        std::string slot, local, remote, state, queues, timer, retransmits, timeout;
        SocketEntry entry;
        fields >> slot >> local >> remote >> state >> queues >> timer >> retransmits >> entry.uid >>
            timeout >> entry.inode;
        if (fields && Holds(local, address, port)) {
            return entry;
        }
    }
    return std::nullopt;
}

bool HoldsInode(const fs::path& process, const std::string& inode) {
    std::error_code error;
    for (fs::directory_iterator entry(process / "fd", error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code unreadable;
        if (fs::read_symlink(entry->path(), unreadable) == "socket:[" + inode + "]") {
            return true;
        }
    }
    return false;
}

int ProcessNumber(const fs::path& folder) {
    const std::string name = folder.filename();
    int pid = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
    return error == std::errc() && end == name.data() + name.size() ? pid : 0;
}

void FindProcess(const fs::path& proc, const std::string& inode, PortOwner& owner) {
    std::error_code error;
    for (fs::directory_iterator entry(proc, error), end; !error && entry != end;
         entry.increment(error)) {
        const int pid = ProcessNumber(entry->path());
        if (pid != 0 && HoldsInode(entry->path(), inode)) {
            owner.pid = pid;
            std::ifstream name(entry->path() / "comm");
            std::getline(name, owner.name);
            return;
        }
    }
}

std::string UserName(unsigned int uid) {
    const passwd* const entry = getpwuid(uid);
    return entry == nullptr ? fmt::format("user {}", uid) : fmt::format("user {}", entry->pw_name);
}

}  // namespace

std::optional<PortOwner> FindUdpPortOwner(const std::string& address, std::uint16_t port,
                                          const fs::path& proc) {
    const std::string portHex = fmt::format("{:04X}", port);
    std::optional<SocketEntry> socket = FindSocket(proc / "net/udp", Ipv4Hex(address), portHex);
    if (!socket) {
        socket = FindSocket(proc / "net/udp6", "-", portHex);
    }
    if (!socket) {
        return std::nullopt;
    }
    PortOwner owner;
    owner.uid = socket->uid;
    FindProcess(proc, socket->inode, owner);
    return owner;
}

std::string PortOwnerText(const std::optional<PortOwner>& owner) {
    if (!owner) {
        return "another process";
    }
    if (owner->pid == 0) {
        return fmt::format("a process of {} (run as root to see which)", UserName(owner->uid));
    }
    return fmt::format("{} (process {})", owner->name.empty() ? "a process" : owner->name,
                       owner->pid);
}

}  // namespace Lanscout
