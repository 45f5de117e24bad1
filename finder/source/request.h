// What is searched, and how. The values here are the defaults of the command's options.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "finder/broker/brokersettings.h"

namespace Lanscout {

// IPv4 addresses in host byte order, both ends included.
struct AddressRange {
    std::uint32_t first = 0;
    std::uint32_t last = 0;

    bool operator==(const AddressRange&) const = default;
};

struct Request {
    std::vector<std::string> interfaces;  // by name; with no interface and no address: every usable
    std::vector<std::string> addresses;   // of this machine
    std::vector<AddressRange> to;  // asked one by one; without interfaces and addresses, nothing
                                   // else is asked
    std::optional<BrokerSettings> sites;  // where other lanscouts publish; as of `to`
    std::chrono::seconds timeout{5};
    std::chrono::seconds maxTime{65};  // whatever still runs then is ended
    bool onvif = true;
    bool upnp = true;
    bool ipv4 = true;
    bool ipv6 = true;
    int sourcePort = 0;  // of the Probes; 0: any free one
    int rate = 500;      // Probes a second to single addresses
    int atOnce = 16;     // UPnP processes
};

}  // namespace Lanscout
