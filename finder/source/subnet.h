// IPv4 subnets, and which addresses lie in them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Lanscout {

// In host byte order.
struct Subnet {
    std::uint32_t network = 0;
    std::uint32_t mask = 0;

    bool Contains(std::uint32_t address) const { return (address & mask) == network; }
    bool operator==(const Subnet&) const = default;
};

// From "192.168.1.0/24"; nothing for another text.
std::optional<Subnet> SubnetFrom(std::string_view text);

}  // namespace Lanscout
