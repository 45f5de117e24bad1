#include "finder/machine/portowner.h"

#include <arpa/inet.h>
#include <fmt/core.h>
#include <linux/inet_diag.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <pwd.h>

#include <array>
#include <charconv>
#include <cstring>
#include <fstream>
#include <system_error>

#include "finder/machine/netlink.h"
#include "finder/text/safetext.h"

namespace Lanscout {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kRequestBytes = 256;
constexpr std::uint32_t kEveryState = ~std::uint32_t{0};

struct SocketEntry {
    unsigned int uid = 0;
    unsigned int inode = 0;
};

// What a bind is for, or what a socket has; IPv4 addresses as IPv6 writes them (RFC 4291, 2.5.5.2).
in6_addr Mapped(std::uint32_t address) {
    in6_addr mapped{};
    mapped.s6_addr[10] = 0xFF;
    mapped.s6_addr[11] = 0xFF;
    std::memcpy(&mapped.s6_addr[12], &address, sizeof address);
    return mapped;
}

bool IsWildcard(const in6_addr& address) {
    return IN6_IS_ADDR_UNSPECIFIED(&address) ||
           (IN6_IS_ADDR_V4MAPPED(&address) && address.s6_addr32[3] == 0);
}

// The address that the socket has.
in6_addr AddressOf(const inet_diag_msg& socket) {
    if (socket.idiag_family == AF_INET) {
        return Mapped(socket.id.idiag_src[0]);
    }
    in6_addr address{};
    std::memcpy(&address, socket.id.idiag_src, sizeof address);
    return address;
}

bool IsForIpv6Only(const nlmsghdr& message) {
    bool only = false;
    ForEachAttribute(message, sizeof(inet_diag_msg), [&](int type, auto bytes) {
        only = only || (type == INET_DIAG_SKV6ONLY && !bytes.empty() && bytes[0] != 0);
    });
    return only;
}

bool IsInTheWay(const nlmsghdr& message, const in6_addr& wanted, std::uint16_t port) {
    const auto* const socket = static_cast<const inet_diag_msg*>(mnl_nlmsg_get_payload(&message));
    if (ntohs(socket->id.idiag_sport) != port) {
        return false;
    }
    const in6_addr address = AddressOf(*socket);
    const bool samePlace = IN6_ARE_ADDR_EQUAL(&address, &wanted) || IsWildcard(address) ||
                           (IsWildcard(wanted) && IN6_IS_ADDR_V4MAPPED(&address));
    return samePlace && (socket->idiag_family == AF_INET || !IsForIpv6Only(message));
}

std::optional<SocketEntry> FindSocket(int family, const in6_addr& wanted, std::uint16_t port) {
    alignas(nlmsghdr) std::array<char, kRequestBytes> buffer{};
    nlmsghdr* const request = mnl_nlmsg_put_header(buffer.data());
    request->nlmsg_type = SOCK_DIAG_BY_FAMILY;
    request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    auto* const body = static_cast<inet_diag_req_v2*>(
        mnl_nlmsg_put_extra_header(request, sizeof(inet_diag_req_v2)));
    body->sdiag_family = static_cast<unsigned char>(family);
    body->sdiag_protocol = IPPROTO_UDP;
    body->idiag_states = kEveryState;
    std::optional<SocketEntry> found;
    try {
        Netlink(NETLINK_SOCK_DIAG).Ask(*request, [&](const nlmsghdr& message) {
            if (!found && mnl_nlmsg_get_payload_len(&message) >= sizeof(inet_diag_msg) &&
                IsInTheWay(message, wanted, port)) {
                const auto* const socket =
                    static_cast<const inet_diag_msg*>(mnl_nlmsg_get_payload(&message));
                found = SocketEntry{socket->idiag_uid, socket->idiag_inode};
            }
        });
    } catch (const std::system_error&) {
        return std::nullopt;  // a kernel without it
    }
    return found;
}

bool HoldsInode(const fs::path& process, unsigned int inode) {
    const std::string link = fmt::format("socket:[{}]", inode);
    std::error_code error;
    for (fs::directory_iterator entry(process / "fd", error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code unreadable;
        if (fs::read_symlink(entry->path(), unreadable) == link) {
            return true;
        }
    }
    return false;
}

int ProcessNumber(const fs::path& folder) {
    const std::string name = folder.filename();
    int pid = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
    return error == std::errc() && end == name.data() + name.size() ? pid : 0;
}

void FindProcess(const fs::path& proc, unsigned int inode, PortOwner& owner) {
    std::error_code error;
    for (fs::directory_iterator entry(proc, error), end; !error && entry != end;
         entry.increment(error)) {
        const int pid = ProcessNumber(entry->path());
        if (pid != 0 && HoldsInode(entry->path(), inode)) {
            owner.pid = pid;
            std::ifstream name(entry->path() / "comm");
            std::getline(name, owner.name);
            owner.name = ToKeptText(owner.name);
            return;
        }
    }
}

std::string UserName(unsigned int uid) {
    const passwd* const entry = getpwuid(uid);
    return entry == nullptr ? fmt::format("user {}", uid) : fmt::format("user {}", entry->pw_name);
}

}  // namespace

std::optional<PortOwner> FindUdpPortOwner(const std::string& address, std::uint16_t port,
                                          const fs::path& proc) {
    in_addr binary{};
    inet_pton(AF_INET, address.c_str(), &binary);
    const in6_addr wanted = Mapped(binary.s_addr);
    std::optional<SocketEntry> socket = FindSocket(AF_INET, wanted, port);
    if (!socket) {
        socket = FindSocket(AF_INET6, wanted, port);
    }
    if (!socket) {
        return std::nullopt;
    }
    PortOwner owner;
    owner.uid = socket->uid;
    FindProcess(proc, socket->inode, owner);
    return owner;
}

std::string PortOwnerText(const std::optional<PortOwner>& owner) {
    if (!owner) {
        return "another process";
    }
    if (owner->pid == 0) {
        return fmt::format("a process of {} (run as root to see which)", UserName(owner->uid));
    }
    return fmt::format("{} (process {})", owner->name.empty() ? "a process" : owner->name,
                       owner->pid);
}

}  // namespace Lanscout
