// IPv4 addresses as text, and the machine's own ones.
#pragma once

#include <ifaddrs.h>
#include <netinet/in.h>

#include <memory>
#include <optional>
#include <string>

// The address that a strict dotted quad names: four decimal numbers without leading zeros, nothing
// before, between or behind. Octal, short and hexadecimal forms, which other parsers accept, mean
// different addresses to different programs; a check that one of them passed would not bind the
// next.
std::optional<in_addr> ParseIpv4(const std::string& text);

struct FreeIfAddrs {
    void operator()(ifaddrs* list) const { freeifaddrs(list); }
};
using IfAddrsList = std::unique_ptr<ifaddrs, FreeIfAddrs>;

// The machine's interface addresses; null when the kernel does not tell.
IfAddrsList ReadIfAddrs();

// The IPv4 address behind a socket address; none for null and for other families.
std::optional<in_addr> Ipv4Of(const sockaddr* address);
