// libupnp's calls, wrapped at the link (upnp.cmake): recorded, answered as the test says, and its
// events delivered when the test says. Every test starts with UpnpFake::Reset().
#pragma once

#include <upnp/upnp.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace UpnpFake {

inline constexpr UpnpClient_Handle kHandle = 3;  // what UpnpRegisterClient gives out

void Reset();

// Every call so far, with the arguments that matter, as the functions below spell them.
std::vector<std::string> Calls();

// What starting on 127.0.0.1 comes to on the installed release.
std::string StartOnLoopback(int port);
std::string Register();
std::string Search(int seconds);  // of kHandle, for root devices
std::string Unregister();         // of kHandle
std::string Finish();

// What `function` answers from now on, and what runs inside it first. "UpnpInit" stands for either
// way to start.
void SetResult(const std::string& function, int result);
void SetDuring(const std::string& function, std::function<void()> during);

const void* ClientCookie();  // of the last UpnpRegisterClient
const void* SearchCookie();  // of the last UpnpSearchAsync

// Calls back as libupnp does, with the client's cookie.
int Deliver(Upnp_EventType type, const void* event);

// A discovery event of libupnp's own.
struct DeleteEvent {
    void operator()(UpnpDiscovery* event) const { UpnpDiscovery_delete(event); }
};
using Event = std::unique_ptr<UpnpDiscovery, DeleteEvent>;
Event MakeEvent(const std::string& location, int errCode = UPNP_E_SUCCESS);

}  // namespace UpnpFake
