#include "finder/machine/returnpath.h"

#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <system_error>

namespace Lanscout {
namespace {

constexpr int kStrict = 1;  // the way back has to lead through the same interface
constexpr std::size_t kRequestBytes = 256;
constexpr unsigned char kWholeAddress = 32;

int SettingIn(const std::filesystem::path& folder) {
    int value = 0;
    std::ifstream(folder / "rp_filter") >> value;
    return value;
}

}  // namespace

// The larger of the two settings counts (the kernel's ip-sysctl).
ReturnPath::ReturnPath(const std::vector<std::string>& interfaces,
                       const std::filesystem::path& settings) {
    const int all = SettingIn(settings / "all");
    for (const std::string& interface : interfaces) {
        const std::string name = interface.substr(0, interface.find(':'));
        const int setting = std::max(all, SettingIn(settings / name));
        m_settings[interface] = {setting, if_nametoindex(name.c_str())};
        if (setting != 0 && !m_netlink) {
            m_netlink.emplace(NETLINK_ROUTE);
        }
    }
}

std::optional<unsigned int> ReturnPath::InterfaceTowards(const std::string& address) {
    in_addr binary{};
    if (inet_pton(AF_INET, address.c_str(), &binary) != 1) {
        return std::nullopt;
    }
    alignas(nlmsghdr) std::array<char, kRequestBytes> buffer{};
    nlmsghdr* const request = mnl_nlmsg_put_header(buffer.data());
    request->nlmsg_type = RTM_GETROUTE;
    request->nlmsg_flags = NLM_F_REQUEST;
    auto* const route = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(request, sizeof(rtmsg)));
    route->rtm_family = AF_INET;
    route->rtm_dst_len = kWholeAddress;
    mnl_attr_put(request, RTA_DST, sizeof binary, &binary);
    std::optional<unsigned int> interface;
    try {
        m_netlink->Ask(*request, [&](const nlmsghdr& message) {
            if (mnl_nlmsg_get_payload_len(&message) < sizeof(rtmsg)) {
                return;
            }
            ForEachAttribute(message, sizeof(rtmsg), [&](int type, auto bytes) {
                if (type == RTA_OIF && bytes.size() == sizeof(unsigned int)) {
                    interface.emplace();
                    std::memcpy(&*interface, bytes.data(), sizeof(unsigned int));
                }
            });
        });
    } catch (const std::system_error&) {
        return std::nullopt;  // no route leads there
    }
    return interface;
}

bool ReturnPath::Drops(const std::string& address, const std::string& interface) {
    const auto setting = m_settings.find(interface);
    if (setting == m_settings.end() || setting->second.filter == 0) {
        return false;
    }
    const auto towards = InterfaceTowards(address);
    return !towards || (setting->second.filter == kStrict && *towards != setting->second.interface);
}

}  // namespace Lanscout
