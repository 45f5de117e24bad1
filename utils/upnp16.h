// The part of libupnp's 1.6 interface that UpnpSearchBase is written against, on the release that
// is installed. Releases after 1.6 hide the discovery record behind accessors, hand events over as
// const, and from 1.14 on start on an interface's name instead of an address. Only upnp16.cpp knows
// which one it has.
#pragma once

#include <upnp/upnp.h>

#include <cstddef>

// The most bytes a Location may have, its NUL included. libupnp receives discovery messages into
// 2500 bytes, so nothing that it delivers is longer.
inline constexpr std::size_t kUpnpLocationBytes = 4096;

// What a search reply or an advertisement said.
struct Upnp_Discovery {
    int ErrCode;                        // UPNP_E_SUCCESS, or the record says nothing
    char Location[kUpnpLocationBytes];  // the description's URL, NUL-terminated and never cut off
};

// The library's own; not exported. Each returns libupnp's result code, UPNP_E_SUCCESS (0) or less.
namespace Upnp16 {

// `event` is a Upnp_Discovery for the three discovery events that have one, else null; it is valid
// until the callback returns. Called on libupnp's worker threads, several at once; must not throw.
using Callback = int (*)(Upnp_EventType_e type, void* event, void* cookie);

// Starts libupnp, of which a process has one. `hostIp`: the local IPv4 address. From libupnp 1.14
// on UPNP_E_INVALID_INTERFACE for an address that no interface carries, and for the loopback's.
int UpnpInit(const char* hostIp, unsigned short port);

// There is one callback in a process: the last one registered. A Location that does not fit into
// the record is dropped with its event.
int UpnpRegisterClient(Callback callback, const void* cookie, UpnpClient_Handle* handle);

// `cookie` comes with the events that this search brings; others come with the client's.
int UpnpSearchAsync(UpnpClient_Handle handle, int maxWaitSeconds, const char* target,
                    const void* cookie);

// Events that libupnp has queued are still delivered after this, until UpnpFinish returns.
int UpnpUnRegisterClient(UpnpClient_Handle handle);

// Ends libupnp. Waits until every callback has returned, so it must not be called in one.
int UpnpFinish();

}  // namespace Upnp16
