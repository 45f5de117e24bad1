// The kernel's table of neighbours (ARP and IPv6 neighbour discovery), by rtnetlink.
#pragma once

#include <functional>
#include <string>

#include "finder/machine/netlink.h"

namespace Lanscout {

// A neighbour whose MAC address the kernel uses.
struct Neighbour {
    unsigned int interface = 0;  // its index
    std::string address;         // IPv4, or IPv6 without a zone
    std::string mac;             // "00:1B:FF:01:02:03"

    bool operator==(const Neighbour&) const = default;
};

// The table as it is and as it becomes. What fails throws std::system_error.
class NeighbourTable {
public:
    using Take = std::function<void(const Neighbour&)>;

    NeighbourTable();

    // To be polled for reading; Read is due then.
    int Fd() const { return m_netlink.Fd(); }

    // What the kernel has told since the last call: at first the whole table, then each entry that
    // becomes usable or changes. An entry may come again. Does not wait.
    void Read(const Take& take);

private:
    void Ask();

    Netlink m_netlink;
    bool m_asking = false;  // the kernel is about to tell the whole table
    bool m_again = false;   // and has to tell it once more
};

// The MAC address of that IPv4 or IPv6 neighbour (without a zone) on that interface, or empty.
std::string MacOfNeighbour(const std::string& address, const std::string& interface);

}  // namespace Lanscout
