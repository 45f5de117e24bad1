#include "tests/unit/support/upnpfake.h"

#include <map>
#include <mutex>
#include <utility>

namespace UpnpFake {
namespace {

struct State {
    std::mutex mutex;
    std::vector<std::string> calls;
    std::map<std::string, int> results;
    std::map<std::string, std::function<void()>> during;
    Upnp_FunPtr callback = nullptr;
    const void* clientCookie = nullptr;
    const void* searchCookie = nullptr;
};

State& Current() {
    static State state;
    return state;
}

template <typename Function>
auto Locked(Function function) {
    State& state = Current();
    const std::lock_guard lock(state.mutex);
    return function(state);
}

int Answer(const std::string& function, const std::string& call) {
    const auto [result, during] = Locked([&](State& state) {
        state.calls.push_back(call);
        return std::pair(state.results[function], state.during[function]);
    });
    if (during) {
        during();
    }
    return result;
}

std::string HandleText(UpnpClient_Handle handle) {
    return " handle " + std::to_string(handle);
}

std::string SearchCall(UpnpClient_Handle handle, int seconds, const std::string& target) {
    return "UpnpSearchAsync" + HandleText(handle) + " " + std::to_string(seconds) + " " + target;
}

}  // namespace

void Reset() {
    Locked([](State& state) {
        state.calls.clear();
        state.results.clear();
        state.during.clear();
        state.callback = nullptr;
        state.clientCookie = nullptr;
        state.searchCookie = nullptr;
    });
}

std::vector<std::string> Calls() {
    return Locked([](State& state) { return state.calls; });
}

std::string StartOnLoopback(int port) {
    const std::string start = UPNP_VERSION >= 11400 ? "UpnpInit2 lo " : "UpnpInit 127.0.0.1 ";
    return start + std::to_string(port);
}

std::string Register() {
    return "UpnpRegisterClient";
}

std::string Search(int seconds) {
    return SearchCall(kHandle, seconds, "upnp:rootdevice");
}

std::string Unregister() {
    return "UpnpUnRegisterClient" + HandleText(kHandle);
}

std::string Finish() {
    return "UpnpFinish";
}

void SetResult(const std::string& function, int result) {
    Locked([&](State& state) { state.results[function] = result; });
}

void SetDuring(const std::string& function, std::function<void()> during) {
    Locked([&](State& state) { state.during[function] = std::move(during); });
}

const void* ClientCookie() {
    return Locked([](State& state) { return state.clientCookie; });
}

const void* SearchCookie() {
    return Locked([](State& state) { return state.searchCookie; });
}

int Deliver(Upnp_EventType type, const void* event) {
    const auto [callback, cookie] =
        Locked([](State& state) { return std::pair(state.callback, state.clientCookie); });
    return callback(type, event, const_cast<void*>(cookie));
}

Event MakeEvent(const std::string& location, int errCode) {
    Event event(UpnpDiscovery_new());
    UpnpDiscovery_set_ErrCode(event.get(), errCode);
    UpnpDiscovery_strcpy_Location(event.get(), location.c_str());
    return event;
}

}  // namespace UpnpFake

using UpnpFake::Answer;
using UpnpFake::Locked;
using UpnpFake::State;

extern "C" {

int __wrap_UpnpInit(const char* hostIp, unsigned short port) {
    return Answer("UpnpInit", std::string("UpnpInit ") + hostIp + " " + std::to_string(port));
}

int __wrap_UpnpInit2(const char* ifName, unsigned short port) {
    return Answer("UpnpInit", std::string("UpnpInit2 ") + ifName + " " + std::to_string(port));
}

int __wrap_UpnpRegisterClient(Upnp_FunPtr callback, const void* cookie, UpnpClient_Handle* handle) {
    const int result = Answer("UpnpRegisterClient", UpnpFake::Register());
    if (result != UPNP_E_SUCCESS) {
        return result;
    }
    Locked([&](State& state) {
        state.callback = callback;
        state.clientCookie = cookie;
    });
    *handle = UpnpFake::kHandle;
    return result;
}

int __wrap_UpnpSearchAsync(UpnpClient_Handle handle, int seconds, const char* target,
                           const void* cookie) {
    Locked([&](State& state) { state.searchCookie = cookie; });
    return Answer("UpnpSearchAsync", UpnpFake::SearchCall(handle, seconds, target));
}

int __wrap_UpnpUnRegisterClient(UpnpClient_Handle handle) {
    return Answer("UpnpUnRegisterClient", "UpnpUnRegisterClient" + UpnpFake::HandleText(handle));
}

int __wrap_UpnpFinish() {
    return Answer("UpnpFinish", UpnpFake::Finish());
}

}  // extern "C"
