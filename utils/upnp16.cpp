#include "utils/upnp16.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <string_view>

// libupnp has documented these numbers since 1.6, and callers may know them by number.
static_assert(UPNP_DISCOVERY_ADVERTISEMENT_ALIVE == 4);
static_assert(UPNP_DISCOVERY_SEARCH_RESULT == 6);
static_assert(UPNP_DISCOVERY_SEARCH_TIMEOUT == 7);

namespace {

// Never cleared: libupnp delivers what it has queued also after the client is unregistered.
std::atomic<Upnp16::Callback> g_callback{nullptr};

bool HasDiscoveryRecord(Upnp_EventType type) {
    return type == UPNP_DISCOVERY_ADVERTISEMENT_ALIVE ||
           type == UPNP_DISCOVERY_ADVERTISEMENT_BYEBYE || type == UPNP_DISCOVERY_SEARCH_RESULT;
}

// False when the Location does not fit; `record` is then not to be used.
bool ReadRecord(const UpnpDiscovery* event, Upnp_Discovery& record) {
    record.ErrCode = UpnpDiscovery_get_ErrCode(event);
    const char* const text = UpnpDiscovery_get_Location_cstr(event);
    const std::string_view location = text == nullptr ? std::string_view() : text;
    if (location.size() >= sizeof(record.Location)) {
        return false;
    }
    *std::copy(location.begin(), location.end(), std::begin(record.Location)) = '\0';
    return true;
}

extern "C" int DeliverEvent(Upnp_EventType type, const void* event, void* cookie) {
    const Upnp16::Callback callback = g_callback.load();
    if (event == nullptr || !HasDiscoveryRecord(type)) {
        return callback(type, nullptr, cookie);
    }
    Upnp_Discovery record;
    if (!ReadRecord(static_cast<const UpnpDiscovery*>(event), record)) {
        return 0;
    }
    return callback(type, &record, cookie);
}

#if UPNP_VERSION >= 11400

struct FreeIfAddrs {
    void operator()(ifaddrs* list) const { freeifaddrs(list); }
};

bool Carries(const ifaddrs& entry, in_addr address) {
    if (entry.ifa_addr == nullptr || entry.ifa_addr->sa_family != AF_INET) {
        return false;
    }
    sockaddr_in own{};
    std::memcpy(&own, entry.ifa_addr, sizeof(own));
    return own.sin_addr.s_addr == address.s_addr;
}

using IfName = std::array<char, IFNAMSIZ>;

// The name of the interface that carries the address; false if none does.
bool FindInterface(const char* ip, IfName& name) {
    in_addr address{};
    ifaddrs* found = nullptr;
    if (inet_pton(AF_INET, ip, &address) != 1 || getifaddrs(&found) != 0) {
        return false;
    }
    const std::unique_ptr<ifaddrs, FreeIfAddrs> list(found);
    for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
        if (Carries(*entry, address)) {
            name.back() = '\0';
            std::strncpy(name.data(), entry->ifa_name, name.size() - 1);
            return true;
        }
    }
    return false;
}

#endif

}  // namespace

namespace Upnp16 {

#if UPNP_VERSION >= 11400
int UpnpInit(const char* hostIp, unsigned short port) {
    IfName name{};
    if (!FindInterface(hostIp, name)) {
        return UPNP_E_INVALID_INTERFACE;
    }
    return ::UpnpInit2(name.data(), port);
}
#else
int UpnpInit(const char* hostIp, unsigned short port) {
    return ::UpnpInit(hostIp, port);
}
#endif

int UpnpRegisterClient(Callback callback, const void* cookie, UpnpClient_Handle* handle) {
    g_callback.store(callback);
    return ::UpnpRegisterClient(DeliverEvent, cookie, handle);
}

int UpnpSearchAsync(UpnpClient_Handle handle, int maxWaitSeconds, const char* target,
                    const void* cookie) {
    return ::UpnpSearchAsync(handle, maxWaitSeconds, target, cookie);
}

int UpnpUnRegisterClient(UpnpClient_Handle handle) {
    return ::UpnpUnRegisterClient(handle);
}

int UpnpFinish() {
    return ::UpnpFinish();
}

}  // namespace Upnp16
