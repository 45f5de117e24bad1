// Which sightings are one device. The list of a search, --compare and --watch all ask here.
//
// A device is told by its MAC address, by its unique id (the ONVIF endpoint reference, the UPnP
// UDN) and by its IP address, in this order: a known contradiction in an earlier one outweighs
// agreement in a later one.
//
// Devices of different sites are different devices, whatever else is alike: private addresses are
// the same everywhere, and what one site publishes says nothing of another's devices.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "finder/device/device.h"

namespace Lanscout {

// What a device is told by. Empty texts are not known.
struct Marks {
    std::string mac;
    std::string uuid;  // bare: without "urn:uuid:" and in lower case, as the UDN
    std::string udn;
    std::string ip;  // IPv4, or else IPv6
    std::string interface;
    std::string hardware;
    std::string site{};  // whose lanscout published it; empty: found by this one

    bool operator==(const Marks&) const = default;
};

Marks MarksOf(const Device& device, const std::string& interface);

// An id without what only says that it is one: "urn:uuid:AB" and "uuid:ab" are "ab".
std::string BareId(const std::string& id);

bool IsIpv6Mark(const std::string& ip);

// Both known, and different.
bool Contradict(const std::string& a, const std::string& b);

// Puts sightings of one moment together: each element of the result holds the indices of one
// device's. The order of `all` makes no difference to who is put together.
std::vector<std::vector<std::size_t>> GroupByDevice(std::span<const Marks> all);

// For each of `before`, a list of an earlier moment, its partner's index in `after`.
std::vector<std::optional<std::size_t>> MatchDevices(const std::vector<Device>& before,
                                                     const std::vector<Device>& after);

}  // namespace Lanscout
