// One device from what its sources have told.
#pragma once

#include <ctime>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>

#include "finder/device/sighting.h"

namespace Lanscout {

// Takes what was told in any order; the device is the same whatever the order was.
class Composition {
public:
    void Add(SourceId source, const Device& told, const std::string& mac, std::time_t first,
             std::time_t last);

    // All fields but the maker of the MAC address and what can only be told of the whole list.
    Device Result() const;

private:
    // Prefers an address of a subnet of ours, then the one that the better source tells, then the
    // lower one (a shorter text is lower).
    using Ipv4Rank = std::tuple<int, SourceId, std::size_t, std::string>;

    void SetAddresses(Device& device) const;

    std::map<SourceId, Device> m_toldBy;
    std::set<Ipv4Rank> m_ipv4;
    std::set<std::string> m_ipv6;
    std::set<std::string> m_macs;
    std::optional<std::time_t> m_first;
    std::time_t m_last = 0;
};

}  // namespace Lanscout
