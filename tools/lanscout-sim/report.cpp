#include "tools/lanscout-sim/report.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

#include "tools/lanscout-sim/population.h"

namespace lansim {

using nlohmann::ordered_json;

ordered_json DevicesReport(const std::vector<Camera>& cameras) {
    auto devices = ordered_json::array();
    for (const auto& camera : cameras) {
        auto kinds = ordered_json::array();
        for (const auto kind : camera.misbehaviours)
            kinds.push_back(NameOf(kind));
        devices.push_back({{"kind", "onvif"},
                           {"name", camera.name},
                           {"maker", camera.maker},
                           {"ip", ToText(camera.ip)},
                           {"mac", ToText(camera.mac)},
                           {"port", camera.port},
                           {"hardware", camera.hardware},
                           {"uuid", camera.uuid},
                           {"misbehaviours", kinds},
                           {"probesSeen", camera.probesSeen},
                           {"repliesSent", camera.repliesSent}});
    }
    return devices;
}

ordered_json CountsReport(const ResponderCounts& counts, const TapCounts* tap) {
    auto refused = ordered_json::object();
    for (const auto& [error, count] : counts.refused)
        refused[std::string(NameOf(error))] = count;
    ordered_json report = {{"datagrams", counts.datagrams},
                           {"probes", counts.probes},
                           {"refused", refused},
                           {"probesLost", counts.probesLost},
                           {"repliesSent", counts.repliesSent},
                           {"repliesLost", counts.repliesLost},
                           {"sendsRepeated", counts.sendsRepeated},
                           {"sendsFailed", counts.sendsFailed}};
    if (tap != nullptr) {
        report["framesHeard"] = tap->framesHeard;
        report["framesSent"] = tap->framesSent;
        report["arpRequestsHeard"] = tap->arpRequestsHeard;
        report["arpRepliesSent"] = tap->arpRepliesSent;
        report["arpRequestsSent"] = tap->arpRequestsSent;
        report["echoRepliesSent"] = tap->echoRepliesSent;
    }
    return report;
}

void WriteReport(const ordered_json& report, const std::string& fileName) {
    // What a scenario or a Probe brought may not be UTF-8.
    const std::string text =
        report.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
    if (fileName == "-") {
        std::cout << text << std::flush;
        return;
    }
    std::ofstream file(fileName);
    file << text << std::flush;
    if (!file)
        throw SetupError(fmt::format("cannot write {}: {}", fileName, std::strerror(errno)));
}

}  // namespace lansim
