// Addresses as texts: what is one, and its value.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Lanscout {

// The address in host byte order; nothing for a text that is no dotted-decimal IPv4 address.
std::optional<std::uint32_t> Ipv4Value(std::string_view text);

bool IsIpv4Text(std::string_view text);

// With or without a zone ("fe80::1%eth0").
bool IsIpv6Text(std::string_view text);

// "192.168.1.2" from the value in host byte order.
std::string Ipv4Text(std::uint32_t value);

}  // namespace Lanscout
