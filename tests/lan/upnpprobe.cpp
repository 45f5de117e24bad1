// Runs a UPnP search as a server does and prints what came of it, one JSON object a line, for the
// LAN tests.
#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "tests/lan/events.h"
#include "utils/upnpsearchbase.h"

namespace {

using nlohmann::json;

struct Options {
    std::string address;
    int port = 0;
    int seconds = 3;
};

volatile std::sig_atomic_t g_stopNow = 0;  // an interrupt stops the search before its time is spent

auto CountEntries(const char* folder) {
    namespace fs = std::filesystem;
    return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}

auto CountThreads() {
    return CountEntries("/proc/self/task");
}

void PrintLeft(const char* when) {
    Print({{"event", "left"},
           {"when", when},
           {"threads", CountThreads()},
           {"descriptors", CountEntries("/proc/self/fd")}});
}

// libupnp's threads are detached: when it has ended, they have left its code but may still be on
// their way out of the process.
void AwaitThreads(std::ptrdiff_t count) {
    const double end = Seconds() + 5;
    while (CountThreads() > count && Seconds() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

class Probe : public UpnpSearchBase {
public:
    using UpnpSearchBase::UpnpSearchBase;
    ~Probe() override { StopSearch(); }

protected:
    void OnDeviceDiscovered(const std::string& descriptionXml, const char* location) override {
        std::string host;
        int port = 0;
        ParseUrl(location, host, port);
        Print({{"event", "device"},
               {"location", location},
               {"host", host},
               {"port", port},
               {"bytes", descriptionXml.size()},
               {"friendlyName", GetUpnpResultInfo(descriptionXml, "friendlyName")},
               {"manufacturer", GetUpnpResultInfo(descriptionXml, "manufacturer")},
               {"modelName", GetUpnpResultInfo(descriptionXml, "modelName")}});
    }
};

void Search(const Options& options) {
    Probe probe(options.address, options.port, options.seconds);
    Print(
        {{"event", "started"}, {"result", probe.StartSearch()}, {"libupnp", UPNP_VERSION_STRING}});
    while (probe.IsRunning() && g_stopNow == 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    Print({{"event", "ended"}, {"running", probe.IsRunning()}});
    Print({{"event", "stopped"}, {"result", probe.StopSearch()}});
}

}  // namespace

int main(int argc, char** argv) try {
    Options options;
    CLI::App app("Runs a UPnP search and prints JSON lines about it");
    app.add_option("address", options.address)->required();
    app.add_option("--port", options.port, "where libupnp listens");
    app.add_option("--seconds", options.seconds);
    std::signal(SIGINT, [](int) { g_stopNow = 1; });
    CLI11_PARSE(app, argc, argv);
    PrintLeft("before");
    const auto threads = CountThreads();
    Search(options);
    AwaitThreads(threads);
    PrintLeft("after");
    return 0;
} catch (const std::exception& error) {
    fprintf(stderr, "upnpprobe: %s\n", error.what());
    return 1;
}
