// The machine's interfaces as a test says, in place of the kernel's (getifaddrs, freeifaddrs and
// if_nametoindex are wrapped at the link).
#pragma once

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netpacket/packet.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <optional>
#include <string>
#include <vector>

class FakeInterfaces {
public:
    static constexpr unsigned kUp = IFF_UP | IFF_BROADCAST;

    FakeInterfaces() { Current() = this; }
    ~FakeInterfaces() { Current() = nullptr; }
    FakeInterfaces(const FakeInterfaces&) = delete;
    FakeInterfaces& operator=(const FakeInterfaces&) = delete;

    // The entry of a device with a hardware address.
    void AddDevice(const std::string& name, int index, unsigned flags,
                   const std::vector<unsigned char>& mac, unsigned short type = ARPHRD_ETHER) {
        sockaddr_ll link{};
        link.sll_family = AF_PACKET;
        link.sll_ifindex = index;
        link.sll_hatype = type;
        link.sll_halen = static_cast<unsigned char>(mac.size());
        std::memcpy(link.sll_addr, mac.data(), std::min(mac.size(), sizeof link.sll_addr));
        Add(name, flags).ifa_addr = Keep(&link, sizeof link);
    }

    // The entry of a device without one, as tunnels have it.
    void AddBareDevice(const std::string& name, unsigned flags) { Add(name, flags); }

    // An address; an empty text leaves its field null.
    void AddAddress(const std::string& label, unsigned flags, const char* ip, const char* netmask,
                    const char* broadcast) {
        ifaddrs& entry = Add(label, flags);
        entry.ifa_addr = Ipv4(ip);
        entry.ifa_netmask = Ipv4(netmask);
        entry.ifa_broadaddr = Ipv4(broadcast);
    }

    void AddIpv6(const std::string& label, unsigned flags) {
        sockaddr_in6 address{};
        address.sin6_family = AF_INET6;
        Add(label, flags).ifa_addr = Keep(&address, sizeof address);
    }

    void Fail() { m_bFails = true; }

    static FakeInterfaces*& Current() {
        static FakeInterfaces* current = nullptr;
        return current;
    }

    int Give(ifaddrs** list) {
        if (m_bFails) {
            errno = ENOMEM;
            return -1;
        }
        ++nGiven;
        *list = m_entries.empty() ? nullptr : &m_entries.front();
        return 0;
    }

    int nGiven = 0;
    int nFreed = 0;

private:
    ifaddrs& Add(const std::string& name, unsigned flags) {
        ifaddrs entry{};
        entry.ifa_name = m_names.emplace_back(name).data();
        entry.ifa_flags = flags;
        m_entries.push_back(entry);
        if (m_entries.size() > 1) {
            m_entries[m_entries.size() - 2].ifa_next = &m_entries.back();
        }
        return m_entries.back();
    }

    sockaddr* Keep(const void* address, std::size_t size) {
        sockaddr_storage& storage = m_addresses.emplace_back();
        std::memcpy(&storage, address, size);
        return reinterpret_cast<sockaddr*>(&storage);
    }

    sockaddr* Ipv4(const char* text) {
        if (*text == '\0') {
            return nullptr;
        }
        sockaddr_in address{};
        address.sin_family = AF_INET;
        inet_pton(AF_INET, text, &address.sin_addr);
        return Keep(&address, sizeof address);
    }

    bool m_bFails = false;
    std::deque<ifaddrs> m_entries;  // addresses of elements stay
    std::deque<std::string> m_names;
    std::deque<sockaddr_storage> m_addresses;
};

extern "C" {
int __real_getifaddrs(ifaddrs** list);
[[gnu::used]] inline int __wrap_getifaddrs(ifaddrs** list) {
    FakeInterfaces* const fake = FakeInterfaces::Current();
    return fake == nullptr ? __real_getifaddrs(list) : fake->Give(list);
}
void __real_freeifaddrs(ifaddrs* list);
[[gnu::used]] inline void __wrap_freeifaddrs(ifaddrs* list) {
    if (FakeInterfaces* const fake = FakeInterfaces::Current()) {
        ++fake->nFreed;
    } else {
        __real_freeifaddrs(list);
    }
}
unsigned __real_if_nametoindex(const char* name);
[[gnu::used]] inline unsigned __wrap_if_nametoindex(const char* name) {
    // Bare devices are told apart by a number that no other entry of a test has.
    return FakeInterfaces::Current() == nullptr ? __real_if_nametoindex(name) : 77;
}
}
