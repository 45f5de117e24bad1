// HTTP over a Unix socket: how a program outside steers a run.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "tools/lanscout-sim/base/timepoint.h"

struct MHD_Daemon;

namespace lansim {

struct ControlRequest {
    std::string method;
    std::string path;  // decoded
    std::string body;
};

struct ControlAnswer {
    unsigned status = 200;
    std::string json;
};

using ControlHandler = std::function<ControlAnswer(const ControlRequest&)>;

// A file and no port: it is reached from every network namespace, and by its owner alone.
class ControlServer {
public:
    // Throws SetupError, also when another simulator has the file. One that nobody serves any more
    // is replaced.
    ControlServer(const std::string& file, ControlHandler handler);
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;
    ~ControlServer();

    // Becomes readable when Run has something to do; NextDue tells when it has without that.
    int Descriptor() const;
    std::optional<TimePoint> NextDue(TimePoint now) const;
    void Run();

    ControlAnswer Handle(const ControlRequest& request) const { return m_handler(request); }

private:
    std::string m_file;
    ControlHandler m_handler;
    MHD_Daemon* m_daemon = nullptr;
};

}  // namespace lansim
