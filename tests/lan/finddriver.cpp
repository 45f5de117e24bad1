// Searches with the finder and prints what came of it, one JSON object a line, for the LAN tests:
// each device when it is found or more is known of it, each problem, and the report with the
// processor time of all processes.
#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "finder/device/devicejson.h"
#include "finder/finder.h"
#include "finder/source/addressrange.h"
#include "tests/lan/events.h"

namespace {

using nlohmann::json;

class Printer : public Lanscout::Observer {
public:
    void OnDevice(const Lanscout::DeviceEvent& event) override {
        Print({{"event", Lanscout::WhatText(event.what)},
               {"device", json(Lanscout::DeviceToJson(event.device))}});
    }

    void OnProblem(const Lanscout::Problem& problem) override {
        Print({{"event", "problem"},
               {"error", problem.weight == Lanscout::Problem::Weight::Error},
               {"interface", problem.target.interface},
               {"address", problem.target.address},
               {"what", problem.what},
               {"remedy", problem.remedy}});
    }

    void OnLogLine(int /*level*/, std::string_view /*text*/) override {}
    void OnProgress(std::span<const Lanscout::Device> /*devices*/,
                    const Lanscout::Progress& /*progress*/) override {}
};

double SecondsOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

double ProcessorSeconds() {
    double seconds = 0;
    for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage usage{};
        getrusage(who, &usage);
        seconds += SecondsOf(usage.ru_utime) + SecondsOf(usage.ru_stime);
    }
    return seconds;
}

}  // namespace

int main(int argc, char** argv) try {
    Lanscout::Request request;
    request.upnp = false;
    long long seconds = 3;
    CLI::App app("Searches with the finder and prints JSON lines about it");
    app.add_option("--seconds", seconds);
    app.add_option("--interface", request.interfaces);
    app.add_option("--address", request.addresses);
    app.add_option("--source-port", request.sourcePort);
    app.add_option("--rate", request.rate);
    std::vector<std::string> to;
    app.add_option("--to", to);
    app.add_flag("--upnp", request.upnp);
    app.add_flag("!--ipv6", request.ipv4, "only IPv6");
    app.add_flag("!--ipv4", request.ipv6, "only IPv4");
    CLI11_PARSE(app, argc, argv);
    request.timeout = std::chrono::seconds(seconds);
    for (const std::string& text : to) {
        Lanscout::AddAddressRanges(text, request.to);
    }
    Print({{"event", "started"}});
    Printer printer;
    const Lanscout::Report report = Lanscout::RunSearch(request, {}, printer);
    Print({{"event", "report"},
           {"report", json(Lanscout::ReportToJson(report))},
           {"processorSeconds", ProcessorSeconds()}});
    return 0;
} catch (const std::exception& error) {
    fprintf(stderr, "finddriver: %s\n", error.what());
    return 2;
}
