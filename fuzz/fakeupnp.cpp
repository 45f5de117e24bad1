#include "fuzz/fakeupnp.h"

#include <upnp/upnp.h>

#include <memory>

namespace {

Upnp_FunPtr g_callback = nullptr;
const void* g_cookie = nullptr;

struct DeleteDiscovery {
    void operator()(UpnpDiscovery* event) const { UpnpDiscovery_delete(event); }
};

}  // namespace

namespace FakeUpnp {

int DeliverSearchResult(const char* location) {
    const std::unique_ptr<UpnpDiscovery, DeleteDiscovery> event(UpnpDiscovery_new());
    UpnpDiscovery_set_ErrCode(event.get(), UPNP_E_SUCCESS);
    UpnpDiscovery_strcpy_Location(event.get(), location);
    return g_callback(UPNP_DISCOVERY_SEARCH_RESULT, event.get(), const_cast<void*>(g_cookie));
}

}  // namespace FakeUpnp

extern "C" {

int __wrap_UpnpInit(const char*, unsigned short) {
    return UPNP_E_SUCCESS;
}

int __wrap_UpnpInit2(const char*, unsigned short) {
    return UPNP_E_SUCCESS;
}

int __wrap_UpnpRegisterClient(Upnp_FunPtr callback, const void* cookie, UpnpClient_Handle* handle) {
    g_callback = callback;
    g_cookie = cookie;
    *handle = 1;
    return UPNP_E_SUCCESS;
}

int __wrap_UpnpSearchAsync(UpnpClient_Handle, int, const char*, const void*) {
    return UPNP_E_SUCCESS;
}

int __wrap_UpnpUnRegisterClient(UpnpClient_Handle) {
    return UPNP_E_SUCCESS;
}

int __wrap_UpnpFinish() {
    return UPNP_E_SUCCESS;
}
}
