// Where a device's service stands (an entry of XAddrs), and which of several is best.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "finder/device/device.h"
#include "finder/source/subnet.h"

namespace Lanscout {

struct ServiceAddress {
    bool secure = false;  // https
    std::string host;     // a name or an address; IPv6 ones in brackets
    int port = 0;         // 1 to 65535; the scheme's own when none is named
};

// Nothing unless it is an http or https URL with a plain host and without a user's name.
std::optional<ServiceAddress> ReadServiceAddress(const std::string& xaddr);

// Where a reply came from, and what can be said of the way there.
struct ReplySender {
    std::string address;  // IPv4, or IPv6 with its zone
    Reach reach = Reach::Unknown;
    std::span<const Subnet> subnets = {};  // this machine's
};

// The one that this machine most likely reaches. Nothing when none can be read.
std::optional<ServiceAddress> BestServiceAddress(const std::vector<std::string>& xaddrs,
                                                 const ReplySender& sender);

// "http://192.168.1.20:8080/", without a port that is the scheme's own.
std::string PageOf(const ServiceAddress& address);

}  // namespace Lanscout
