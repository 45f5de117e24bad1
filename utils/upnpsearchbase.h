// Finds UPnP root devices on one local IPv4 network (UPnP Device Architecture 1.0: SSDP search for
// upnp:rootdevice, then the description document over HTTP).
#pragma once

#include <pthread.h>

#include <cstdint>
#include <set>
#include <string>

#include "utils/upnp16.h"

// One UPnP search on one local interface. Derived classes decide what to do with each device:
//
//     class MediaFinder : public UpnpSearchBase {
//     public:
//         using UpnpSearchBase::UpnpSearchBase;
//         ~MediaFinder() override { StopSearch(); }  // while m_names still lives
//     protected:
//         void OnDeviceDiscovered(const std::string& descriptionXml, const char*) override {
//             const std::lock_guard lock(m_namesMutex);
//             m_names.push_back(GetUpnpResultInfo(descriptionXml, "friendlyName"));
//         }
//     ...
//     };
//
// Use, in this order:
//
//     MediaFinder search("192.168.1.2", 0, 10);
//     if (search.StartSearch() == 0) {
//         while (search.IsRunning()) { ... wait a little ... }
//         search.StopSearch();
//     }
//
// Threads. "Any thread": may be called by any thread at any time between construction and
// destruction. "Owner": by one thread of the caller's at a time, and never in a callback.
// "libupnp's threads": the worker threads of libupnp, between StartSearch and the return of
// StopSearch, and several at once; OnDeviceDiscovered runs on them, so it does its own locking.
//
// There is one libupnp per process: only one object may be between StartSearch and StopSearch at a
// time, and no other code of the process may use libupnp meanwhile. A StartSearch that finds
// libupnp in use fails, and ends it for the other user.
//
// One object serves one search. Neither StopSearch nor StartSearch forgets the seconds that were
// searched and the devices that were seen. So an object that is started again goes on where it was;
// when its time is spent, it searches no more.
//
// Only the constructor throws, when memory runs out. The result of an operation says if it failed.
class [[gnu::visibility("default")]] UpnpSearchBase {
public:
    // strIp: the local interface's IPv4 address, dotted-decimal. port: where libupnp listens, of
    // which the lowest 16 bits count; 0: 49152. searchTime: seconds; 0 or less: no search at all.
    UpnpSearchBase(const std::string& strIp, int port, int searchTime);

    // Stops the search (as StopSearch does) and releases everything. By then the derived class's
    // part is gone: a derived class calls StopSearch in its own destructor. Owner.
    virtual ~UpnpSearchBase();

    UpnpSearchBase(const UpnpSearchBase&) = delete;
    UpnpSearchBase& operator=(const UpnpSearchBase&) = delete;

    // Starts libupnp and the first search cycle. 0 on success, also where the cycle could not be
    // sent (then IsRunning answers false); -1 if the object was started and not stopped since;
    // otherwise libupnp's own code, -203 (UPNP_E_SOCKET_BIND) for a port that is taken. Owner.
    int StartSearch();

    // Ends the search and libupnp, and returns when the last callback has returned; a description
    // that is being fetched takes up to 5 seconds. 0 on success, -1 if the object was not started.
    // Called in a callback it would wait for itself for ever. Owner.
    int StopSearch();

    // Whether the search time is not spent yet: true from StartSearch until the last cycle's end.
    // Any thread.
    bool IsRunning();

protected:
    // A device was found and its description fetched: once for each distinct location. `location`
    // is the description's URL, valid until this returns. Both come from the network: any bytes.
    // An exception thrown here ends here. libupnp's threads.
    virtual void OnDeviceDiscovered(const std::string& descriptionXml, const char* location) = 0;

    // Sends the next search cycle, of 5 seconds at most, or ends the search when its time is spent.
    // 0 or libupnp's own code. The caller holds m_mutex.
    int SendAsyncSearch();

    // libupnp's callback; `cookie` is the object and `event` a Upnp_Discovery where the type has
    // one. 0 when the event was taken (of use or not), -1 when it was refused. libupnp's threads.
    static int CallbackHandler(Upnp_EventType_e type, void* event, void* cookie) noexcept;

    // Whether the location was seen before. Marks it as seen. Compared byte for byte. Any thread.
    bool IsDeviceAlreadyDiscovered(const char* location);

    // The text of the first element strTag that is written exactly <strTag>text</strTag>, without
    // attributes or prefix; empty if there is none. The text is as in the document: entities are
    // not resolved. Any thread.
    static std::string GetUpnpResultInfo(const std::string& strXml, const std::string& strTag);

    // Host and port (80 if none is given) of an "http://" URL; of a URL with a path and no port the
    // host keeps the path. 0 on success; -1 for any other URL, and the outputs are as they were.
    // Any thread.
    static int ParseUrl(std::string strUrl, std::string & strHost, int& port);

    pthread_mutex_t m_mutex;     // guards m_state, m_elapsed and m_setDiscovered
    UpnpClient_Handle m_handle;  // libupnp's handle; 0 until registered
    std::int32_t m_state;        // 0 idle, 1 searching, 2 search over; CallbackHandler peeks
                                 // without the lock: written through std::atomic_ref
    std::int32_t m_searchTime;   // seconds
    std::int32_t m_elapsed;      // seconds requested from libupnp so far; never reset
    std::int32_t m_port;         // where libupnp listens
    std::string m_strIp;         // the local address
    std::set<std::string> m_setDiscovered;  // the locations seen
};
