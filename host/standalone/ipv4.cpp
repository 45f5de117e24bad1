#include "host/standalone/ipv4.h"

#include <arpa/inet.h>

#include <cstring>

std::optional<in_addr> ParseIpv4(const std::string& text) {
    in_addr address{};
    // inet_pton sees the text up to its first NUL only.
    if (text.find('\0') != std::string::npos || inet_pton(AF_INET, text.c_str(), &address) != 1) {
        return std::nullopt;
    }
    return address;
}

IfAddrsList ReadIfAddrs() {
    ifaddrs* list = nullptr;
    return IfAddrsList(getifaddrs(&list) == 0 ? list : nullptr);
}

std::optional<in_addr> Ipv4Of(const sockaddr* address) {
    if (address == nullptr || address->sa_family != AF_INET) {
        return std::nullopt;
    }
    sockaddr_in ipv4{};
    std::memcpy(&ipv4, address, sizeof ipv4);
    return ipv4.sin_addr;
}
