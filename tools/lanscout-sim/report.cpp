#include "tools/lanscout-sim/report.h"

#include <fmt/format.h>

#include "tools/lanscout-sim/base/setuperror.h"

namespace lansim {

using nlohmann::ordered_json;

namespace {

ordered_json KindsOf(const std::set<Misbehaviour>& misbehaviours) {
    auto kinds = ordered_json::array();
    for (const auto kind : misbehaviours) {
        kinds.push_back(NameOf(kind));
    }
    return kinds;
}

ordered_json ReportOf(const Camera& camera) {
    return {{"kind", "onvif"},
            {"name", camera.name},
            {"maker", camera.maker},
            {"ip", camera.hasIpv4 ? ordered_json(ToText(camera.ip)) : ordered_json()},
            {"ipv6", camera.ipv6 ? ordered_json(ToText(*camera.ipv6)) : ordered_json()},
            {"mac", ToText(camera.mac)},
            {"port", camera.port},
            {"foreign", camera.isForeign},
            {"hardware", camera.hardware},
            {"uuid", camera.uuid},
            {"misbehaviours", KindsOf(camera.misbehaviours)},
            {"probesSeen", camera.probesSeen},
            {"repliesSent", camera.repliesSent}};
}

ordered_json ReportOf(const UpnpDevice& device) {
    return {{"kind", "upnp"},
            {"name", device.name},
            {"maker", device.maker},
            {"model", device.model},
            {"ip", ToText(device.ip)},
            {"mac", ToText(device.mac)},
            {"port", device.port},
            {"location", LocationOf(device)},
            {"uuid", device.uuid},
            {"misbehaviours", KindsOf(device.misbehaviours)},
            {"searchesSeen", device.searchesSeen},
            {"answersSent", device.answersSent},
            {"advertisementsSent", device.advertisementsSent},
            {"descriptionsServed", device.descriptionsServed}};
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
    // What a scenario or a Probe brought may not be UTF-8.
    file.Write(report.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n");
}

}  // namespace lansim
