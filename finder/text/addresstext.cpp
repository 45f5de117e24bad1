#include "finder/text/addresstext.h"

#include <arpa/inet.h>

#include <array>

namespace Lanscout {
namespace {

constexpr std::size_t kLongestZone = 15;  // IFNAMSIZ without its zero byte

// inet_pton reads up to a zero byte, behind which anything may stand.
bool HasZeroByte(std::string_view text) {
    return text.find('\0') != std::string_view::npos;
}

}  // namespace

std::optional<std::uint32_t> Ipv4Value(std::string_view text) {
    in_addr address{};
    if (text.size() >= INET_ADDRSTRLEN || HasZeroByte(text) ||
        inet_pton(AF_INET, std::string(text).c_str(), &address) != 1) {
        return std::nullopt;
    }
    return ntohl(address.s_addr);
}

bool IsIpv4Text(std::string_view text) {
    return Ipv4Value(text).has_value();
}

bool IsIpv6Text(std::string_view text) {
    const auto percent = text.find('%');
    const std::string_view zone =
        percent == std::string_view::npos ? std::string_view() : text.substr(percent + 1);
    if (percent != std::string_view::npos && (zone.empty() || zone.size() > kLongestZone)) {
        return false;
    }
    const std::string_view bare = text.substr(0, percent);
    in6_addr address{};
    return bare.size() < INET6_ADDRSTRLEN && !HasZeroByte(text) &&
           inet_pton(AF_INET6, std::string(bare).c_str(), &address) == 1;
}

std::string Ipv4Text(std::uint32_t value) {
    const in_addr address{htonl(value)};
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &address, text.data(), text.size());
    return text.data();
}

}  // namespace Lanscout
