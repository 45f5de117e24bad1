#include "tools/lanscout-sim/report.h"

#include <fmt/format.h>

#include "tools/lanscout-sim/base/setuperror.h"
#include "tools/lanscout-sim/devicejson.h"

namespace lansim {

using nlohmann::ordered_json;

namespace {

// The truth about a device, and what became of it.
ordered_json ReportOf(const Camera& camera) {
    auto report = TruthOf(camera);
    report.update({{"probesSeen", camera.probesSeen}, {"repliesSent", camera.repliesSent}});
    return report;
}

ordered_json ReportOf(const UpnpDevice& device) {
    auto report = TruthOf(device);
    report.update({{"searchesSeen", device.searchesSeen},
                   {"answersSent", device.answersSent},
                   {"advertisementsSent", device.advertisementsSent},
                   {"descriptionsServed", device.descriptionsServed}});
    return report;
}

template <typename Reason>
ordered_json ByReason(const std::map<Reason, std::uint64_t>& refused) {
    auto counts = ordered_json::object();
    for (const auto& [reason, count] : refused) {
        counts[std::string(NameOf(reason))] = count;
    }
    return counts;
}

}  // namespace

ordered_json Truth(const Population& population) {
    auto devices = ordered_json::array();
    for (const auto& camera : population.cameras) {
        devices.push_back(TruthOf(camera));
    }
    for (const auto& device : population.upnpDevices) {
        devices.push_back(TruthOf(device));
    }
    return {{"devices", devices}};
}

ordered_json DevicesReport(const Population& population) {
    auto devices = ordered_json::array();
    for (const auto& camera : population.cameras) {
        devices.push_back(ReportOf(camera));
    }
    for (const auto& device : population.upnpDevices) {
        devices.push_back(ReportOf(device));
    }
    return devices;
}

ordered_json CountsReport(const AllCounts& counts) {
    ordered_json report = {{"datagrams", counts.cameras.datagrams},
                           {"probes", counts.cameras.probes},
                           {"resolves", counts.cameras.resolves},
                           {"refused", ByReason(counts.cameras.refused)},
                           {"probesLost", counts.cameras.probesLost},
                           {"ssdpDatagrams", counts.upnp.datagrams},
                           {"searches", counts.upnp.searches},
                           {"searchesRefused", ByReason(counts.upnp.refused)},
                           {"searchesLost", counts.upnp.searchesLost},
                           {"repliesSent", counts.outbox.sent},
                           {"repliesLost", counts.outbox.lost},
                           {"sendsRepeated", counts.outbox.repeated},
                           {"sendsFailed", counts.outbox.failed}};
    if (counts.tap != nullptr) {
        const TapCounts& tap = *counts.tap;
        report.update({{"framesHeard", tap.framesHeard},
                       {"framesSent", tap.framesSent},
                       {"arpRequestsHeard", tap.arpRequestsHeard},
                       {"arpRepliesSent", tap.arpRepliesSent},
                       {"arpRequestsSent", tap.arpRequestsSent},
                       {"echoRepliesSent", tap.echoRepliesSent},
                       {"tcpPacketsHeard", tap.tcpPacketsHeard},
                       {"tcpPacketsSent", tap.tcpPacketsSent},
                       {"refusalsSent", tap.refusalsSent}});
    }
    return report;
}

void WriteReport(const ordered_json& report, OutputFile& file) {
    // What a scenario or a Probe brought may not be UTF-8, and may steer a terminal.
    file.Write(report.dump(2, ' ', true, ordered_json::error_handler_t::replace) + "\n");
}

}  // namespace lansim
