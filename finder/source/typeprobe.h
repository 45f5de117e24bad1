// Asks who is there and what it is, beside the search: that one lists nothing before the network
// has been quiet for three seconds, spends a while on each MAC address, and does not keep the
// Types.
#pragma once

#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "finder/device/device.h"
#include "utils/wsdiscoverybase.h"

namespace Lanscout {

// What a ProbeMatches reply says of its sender: Camera when its Types name ONVIF's
// NetworkVideoTransmitter; Other when they name something and neither that nor ONVIF's general
// device, such as a printer; Unknown otherwise. Nothing when it is no reply with a ProbeMatch.
std::optional<Kind> KindOfReply(std::string_view reply);

// Sends the library's own Probes from sockets of its own, so that the replies come here. For one
// thread.
class TypeProbe : public WSDiscoveryBase {
public:
    explicit TypeProbe(const std::string& address);
    ~TypeProbe();
    TypeProbe(const TypeProbe&) = delete;
    TypeProbe& operator=(const TypeProbe&) = delete;

    // Sends one Probe of each type.
    void Ask();

    // Waits for replies that long and takes those that are there; returns the senders of which it
    // knows more than before, without their MAC addresses.
    std::vector<Device> Listen(std::chrono::milliseconds time);

    Kind KindOf(const std::string& ip) const;

private:
    // A network has thousands of devices; a flood of forged replies has more.
    static constexpr std::size_t kMostSenders = 65536;

    void TakeReplies(int fd, std::vector<Device>& news);
    void Take(const std::string& ip, std::string_view reply, std::vector<Device>& news);
    Device DeviceFrom(const std::string& ip, std::string_view reply, Kind kind);

    std::array<int, 2> m_sockets;  // replies to the one type do not crowd out those to the other
    std::unordered_map<std::string, Kind> m_kinds;
};

}  // namespace Lanscout
