#include "finder/source/serviceaddress.h"

#include <arpa/inet.h>
#include <fmt/core.h>

#include <algorithm>
#include <cctype>

#include "finder/text/addresstext.h"
#include "finder/text/url.h"

namespace Lanscout {
namespace {

constexpr int kHttpPort = 80;
constexpr int kHttpsPort = 443;
constexpr std::size_t kLongestHost = 255;  // RFC 1035, 2.3.4

constexpr Subnet kLinkLocal{0xA9FE0000, 0xFFFF0000};  // RFC 3927: 169.254.0.0/16
constexpr Subnet kLoopback{0x7F000000, 0xFF000000};
constexpr Subnet kThisNetwork{0, 0xFF000000};  // RFC 1122: 0.0.0.0/8

// A page's address is shown and may be opened: nothing in it that means something elsewhere.
bool IsPlainHost(const std::string& host) {
    const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
    if (bracketed) {
        return IsIpv6Text(host.substr(1, host.size() - 2)) && host.find('%') == std::string::npos;
    }
    return !host.empty() && host.size() <= kLongestHost &&
           std::all_of(host.begin(), host.end(), [](unsigned char c) {
               return c < 0x80 && (std::isalnum(c) != 0 || c == '.' || c == '-' || c == '_');
           });
}

// That only works on the wire, or only on the device.
bool IsOfLittleUse(const ServiceAddress& address) {
    if (const auto value = Ipv4Value(address.host)) {
        return kLinkLocal.Contains(*value) || kLoopback.Contains(*value) ||
               kThisNetwork.Contains(*value);
    }
    in6_addr binary{};
    const std::string bare = address.host.substr(0, address.host.size() - 1);
    return address.host.front() == '[' && inet_pton(AF_INET6, bare.c_str() + 1, &binary) == 1 &&
           (IN6_IS_ADDR_LINKLOCAL(&binary) || IN6_IS_ADDR_LOOPBACK(&binary) ||
            IN6_IS_ADDR_UNSPECIFIED(&binary));
}

bool IsInOneOf(std::span<const Subnet> subnets, const std::string& host) {
    const auto value = Ipv4Value(host);
    return value && std::any_of(subnets.begin(), subnets.end(),
                                [&](const Subnet& subnet) { return subnet.Contains(*value); });
}

// The less, the better. Behind a router the sender's address is the only one that is known to be
// reached from here, whatever numbers both sides use.
int RankOf(const ServiceAddress& address, const ReplySender& sender) {
    const bool isSender = address.host == sender.address;
    const bool isOurs = IsInOneOf(sender.subnets, address.host);
    if (isSender && (isOurs || sender.reach == Reach::Routed)) {
        return 0;
    }
    if (isOurs) {
        return 1;
    }
    if (isSender) {
        return 2;
    }
    if (IsOfLittleUse(address)) {
        return 5;
    }
    return address.host.front() == '[' ? 4 : 3;
}

}  // namespace

std::optional<ServiceAddress> ReadServiceAddress(const std::string& xaddr) {
    const std::optional<Url> url = ReadUrl(xaddr);
    if (!url || !IsPlainHost(url->host)) {
        return std::nullopt;
    }
    return ServiceAddress{url->secure, url->host, url->port};
}

std::optional<ServiceAddress> BestServiceAddress(const std::vector<std::string>& xaddrs,
                                                 const ReplySender& sender) {
    std::optional<ServiceAddress> best;
    for (const std::string& xaddr : xaddrs) {
        const auto address = ReadServiceAddress(xaddr);
        if (address && (!best || RankOf(*address, sender) < RankOf(*best, sender))) {
            best = address;
        }
    }
    const bool elsewhere = best && best->host != sender.address &&
                           (IsOfLittleUse(*best) || (sender.reach == Reach::Routed));
    if (elsewhere && IsIpv4Text(sender.address)) {
        best->host = sender.address;
    }
    return best;
}

std::string PageOf(const ServiceAddress& address) {
    const int usual = address.secure ? kHttpsPort : kHttpPort;
    const std::string port = address.port == usual ? "" : fmt::format(":{}", address.port);
    return fmt::format("{}://{}{}/", address.secure ? "https" : "http", address.host, port);
}

}  // namespace Lanscout
