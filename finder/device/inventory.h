// The devices that were found, each once however it was found.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "finder/device/device.h"

namespace Lanscout {

// Two sightings are one device
//   - when their address is the same, unless both MAC addresses are known and differ (two networks
//     may use the same addresses), and
//   - when their MAC address is the same and different interfaces saw them under different
//     addresses, unless their hardware differs. On one interface they stay two: behind a Wi-Fi
//     repeater many cameras have the repeater's MAC address.
class DeviceTable {
public:
    enum class Change { Added, Updated, None, Full };
    struct Result {
        Change change;
        std::size_t index;
    };

    // A network of cameras has thousands; a flood of forged replies has more.
    static constexpr std::size_t kMostDevices = 65536;

    // Takes what one search saw through `via`. An empty text never replaces a known one.
    Result Add(const Device& seen, const Target& via);

    const std::vector<Device>& Devices() const { return m_devices; }

private:
    using Index = std::unordered_multimap<std::string, std::size_t>;

    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    std::size_t Find(const Device& seen, const Target& via) const;

    std::vector<Device> m_devices;
    Index m_byIp;
    Index m_byMac;
};

}  // namespace Lanscout
