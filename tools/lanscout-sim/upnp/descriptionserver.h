// The HTTP server of the UPnP devices' descriptions.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tools/lanscout-sim/network/descriptor.h"
#include "tools/lanscout-sim/network/network.h"
#include "tools/lanscout-sim/network/outbox.h"
#include "tools/lanscout-sim/upnp/rawanswer.h"
#include "tools/lanscout-sim/upnp/upnpdevice.h"

struct MHD_Daemon;

namespace lansim {

// A request for something else than a description, at the host's other services.
struct HttpRequest {
    Endpoint local;
    std::string method;
    std::string path;
    std::string body;
};

struct HttpAnswer {
    unsigned status = 200;
    std::string contentType;
    std::string body;
};

// Nothing: there is no such service.
using HttpHandler = std::function<std::optional<HttpAnswer>(const HttpRequest&)>;

// Serves the devices' descriptions over HTTP. Which device is asked is told by the local address
// of the connection. libmicrohttpd answers; only answers that break HTTP are written here.
class DescriptionServer {
public:
    // The devices stay the caller's and outlive the server.
    explicit DescriptionServer(std::deque<UpnpDevice>& devices);
    DescriptionServer(const DescriptionServer&) = delete;
    DescriptionServer& operator=(const DescriptionServer&) = delete;
    ~DescriptionServer();

    // Listens in the network namespace that the thread is in now. Address 0.0.0.0 is every
    // device's. Throws SetupError.
    void Listen(const Endpoint& at);
    // The same where it does not listen yet.
    void ListenToo(const Endpoint& at);
    // To be called when a device was added or has another address.
    void NoticeChanges();

    // Who answers what is no UPnP device's.
    void SetOtherServices(HttpHandler handler) { m_otherServices = std::move(handler); }
    std::optional<HttpAnswer> AskOthers(const HttpRequest& request) const {
        return m_otherServices ? m_otherServices(request) : std::nullopt;
    }

    // Becomes readable when Run has something to do; NextDue tells when it has without that.
    int Descriptor() const { return m_ready.Get(); }
    std::optional<TimePoint> NextDue(TimePoint now) const;
    void Run(TimePoint now);

    // The device at the local end of the connection; null when there is none.
    UpnpDevice* DeviceAt(int connection) const;

private:
    void Watch(int fd);
    void Accept(int listener);
    void RunRawAnswers(TimePoint now);

    std::deque<UpnpDevice>& m_all;
    std::map<Ipv4, UpnpDevice*> m_devices;
    std::set<Endpoint> m_endpoints;
    HttpHandler m_otherServices;
    lansim::Descriptor m_ready;
    std::map<int, lansim::Descriptor> m_listeners;
    std::map<int, RawAnswer> m_rawAnswers;
    MHD_Daemon* m_daemon;
};

}  // namespace lansim
