#include "tools/lanscout/task/watchlist.h"

#include <fmt/core.h>

#include <optional>
#include <utility>

#include "finder/text/safetext.h"
#include "tools/lanscout/output/formats.h"

namespace Lanscout {
namespace {

// What this round did not learn stays as it was known.
void Refresh(Device& known, const Device& seen) {
    Device fresh = seen;
    for (const auto member :
         {&Device::hardware, &Device::mac, &Device::macMaker, &Device::name, &Device::maker,
          &Device::model, &Device::page, &Device::deviceType, &Device::udn, &Device::location}) {
        if ((fresh.*member).empty()) {
            fresh.*member = known.*member;
        }
    }
    if (known.onvif && !fresh.onvif) {
        fresh.port = known.port;
    }
    fresh.onvif = fresh.onvif || known.onvif;
    fresh.upnp = fresh.upnp || known.upnp;
    fresh.kind = fresh.kind == Kind::Unknown ? known.kind : fresh.kind;
    fresh.firstSeen = known.firstSeen;
    known = std::move(fresh);
}

std::string Details(const WatchEvent& event) {
    if (event.what == WatchEvent::What::Changed) {
        return ChangesText(event.changes);
    }
    return event.what == WatchEvent::What::Gone ? "last seen " + event.lastSeen : "";
}

}  // namespace

std::vector<WatchEvent> WatchList::Take(const Report& report) {
    const auto partners = MatchDevices(Devices(), report.devices);
    std::vector<WatchEvent> events;
    std::vector<Entry> stay;
    std::vector<bool> known(report.devices.size());
    for (std::size_t i = 0; i < m_entries.size(); ++i) {
        Entry& entry = m_entries[i];
        if (!partners[i]) {
            TakeMissing(report, i, events, stay);
            continue;
        }
        const Device& seen = report.devices[*partners[i]];
        known[*partners[i]] = true;
        std::vector<FieldChange> changes = ChangesBetween(entry.device, seen);
        Refresh(entry.device, seen);
        if (!changes.empty()) {
            events.push_back(
                {WatchEvent::What::Changed, report.finished, "", entry.device, std::move(changes)});
        }
        stay.push_back({std::move(entry.device), report.finished, 0});
    }
    for (std::size_t i = 0; i < report.devices.size(); ++i) {
        if (known[i]) {
            continue;
        }
        if (stay.size() >= kMostDevices) {
            m_full = true;
            break;
        }
        const Device& seen = report.devices[i];
        events.push_back({WatchEvent::What::Appeared, seen.firstSeen, "", seen, {}});
        stay.push_back({seen, report.finished, 0});
    }
    m_entries = std::move(stay);
    return events;
}

void WatchList::TakeMissing(const Report& report, std::size_t index,
                            std::vector<WatchEvent>& events, std::vector<Entry>& stay) {
    Entry& entry = m_entries[index];
    entry.missed += report.IsComplete() ? 1 : 0;
    if (entry.missed < kRoundsUntilGone) {
        return stay.push_back(std::move(entry));
    }
    events.push_back(
        {WatchEvent::What::Gone, report.finished, entry.lastSeen, std::move(entry.device), {}});
}

std::vector<Device> WatchList::Devices() const {
    std::vector<Device> devices;
    devices.reserve(m_entries.size());
    for (const Entry& entry : m_entries) {
        devices.push_back(entry.device);
    }
    return devices;
}

const char* WatchWhatText(WatchEvent::What what) {
    switch (what) {
        case WatchEvent::What::Appeared:
            return "appeared";
        case WatchEvent::What::Gone:
            return "gone";
        case WatchEvent::What::Changed:
            break;
    }
    return "changed";
}

std::string WatchEventText(const WatchEvent& event) {
    const Device& device = event.device;
    const std::string details = Details(event);
    std::string line = fmt::format(
        "{}  {:<8}  {:<15}  {:<17}  {}", event.time, WatchWhatText(event.what), device.ip,
        device.mac.empty() ? "N/A" : device.mac, ForDisplay(WhatItIs(device)));
    return details.empty() ? line : line + "  (" + details + ")";
}

std::string WatchEventPlain(const WatchEvent& event) {
    const std::string details = Details(event);
    return fmt::format("{}\t{}\t{}\t{}", event.time, WatchWhatText(event.what),
                       details.empty() ? "-" : details, PlainLine(event.device));
}

Json WatchEventToJson(const WatchEvent& event) {
    Json json{{"event", WatchWhatText(event.what)}, {"time", event.time}};
    if (event.what == WatchEvent::What::Gone) {
        json["lastSeen"] = event.lastSeen;
    }
    if (event.what == WatchEvent::What::Changed) {
        json["changes"] = ChangesToJson(event.changes);
    }
    json["device"] = DeviceToJson(event.device);
    return json;
}

}  // namespace Lanscout
