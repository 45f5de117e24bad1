#include "tools/lanscout/task/watchlist.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <variant>

#include "finder/device/fields.h"
#include "finder/device/identity.h"

namespace Lanscout {
namespace {

using What = DeviceEvent::What;

// What two searches of one device add to each other: which of them answers is a matter of chance.
// Any other field is what the last round heard of it.
bool IsGathered(const Field& field) {
    return std::holds_alternative<Protocols Device::*>(field.member) ||
           field.merge == Merge::Earliest;
}

// What this round did not learn stays as it was known.
void Refresh(Device& known, const Device& seen) {
    Device fresh = seen;
    for (const Field& field : Fields()) {
        const bool isFlag = std::holds_alternative<bool Device::*>(field.member);
        if (IsGathered(field) || (!isFlag && !IsKnown(field, seen))) {
            MergeNextSource(field, fresh, known);
        }
    }
    known = std::move(fresh);
}

bool Contains(const std::vector<std::string>& list, const std::string& text) {
    return std::find(list.begin(), list.end(), text) != list.end();
}

// Of a device with several addresses any may come first.
bool HasMoved(const Device& before, const Device& after) {
    return !before.ip.empty() && !after.ip.empty() && before.ip != after.ip &&
           !Contains(before.otherIps, after.ip) && !Contains(after.otherIps, before.ip);
}

bool IsAddress(const FieldChange& change) {
    const Field* const field = FieldNamed(change.field);
    return field != nullptr && field->member == FieldMember(&Device::ip);
}

}  // namespace

WatchList::WatchList(std::vector<Entry> entries) : m_entries(std::move(entries)) {
    m_entries.resize(std::min(m_entries.size(), kMostDevices));
}

std::vector<DeviceEvent> WatchList::Take(const Report& report) {
    // Where only an address tells who it is, it is one that is there rather than one that was.
    std::stable_partition(m_entries.begin(), m_entries.end(),
                          [](const Entry& entry) { return !entry.gone; });
    std::vector<Device> known;
    for (const Entry& entry : m_entries) {
        known.push_back(entry.device);
    }
    const auto partners = MatchDevices(known, report.devices);
    std::vector<DeviceEvent> events;
    std::vector<bool> taken(report.devices.size());
    for (std::size_t i = 0; i < partners.size(); ++i) {
        if (partners[i]) {
            taken[*partners[i]] = true;
            TakeSeen(report, report.devices[*partners[i]], m_entries[i], events);
        } else {
            TakeMissed(report, m_entries[i], events);
        }
    }
    m_full = false;
    for (std::size_t i = 0; i < report.devices.size() && !m_full; ++i) {
        if (!taken[i]) {
            TakeNew(report, report.devices[i], events);
        }
    }
    return events;
}

void WatchList::TakeSeen(const Report& report, const Device& seen, Entry& entry,
                         std::vector<DeviceEvent>& events) {
    const bool moved = HasMoved(entry.device, seen);
    std::vector<FieldChange> changes = ChangesBetween(entry.device, seen);
    if (!moved) {
        std::erase_if(changes, IsAddress);
    }
    Refresh(entry.device, seen);
    DeviceEvent event;
    event.time = report.finished;
    if (entry.gone) {
        event.what = What::Returned;
        event.lastSeen = entry.lastSeen;
    } else {
        event.what = moved ? What::Moved : What::Changed;
    }
    if (entry.gone || !changes.empty()) {
        event.device = entry.device;
        event.changes = std::move(changes);
        events.push_back(std::move(event));
    }
    entry.lastSeen = report.finished;
    entry.gone = false;
    entry.missed = 0;
}

void WatchList::TakeMissed(const Report& report, Entry& entry, std::vector<DeviceEvent>& events) {
    if (entry.gone || !report.IsComplete() || ++entry.missed < kRoundsUntilGone) {
        return;
    }
    entry.gone = true;
    DeviceEvent event;
    event.what = What::Gone;
    event.time = report.finished;
    event.device = entry.device;
    event.lastSeen = entry.lastSeen;
    events.push_back(std::move(event));
}

void WatchList::TakeNew(const Report& report, const Device& seen,
                        std::vector<DeviceEvent>& events) {
    if (m_entries.size() >= kMostDevices && !MakeRoom()) {
        m_full = true;
        return;
    }
    m_entries.push_back({seen, report.finished, false, 0});
    DeviceEvent event;
    event.what = What::Appeared;
    event.time = seen.firstSeen.empty() ? report.finished : seen.firstSeen;
    event.device = seen;
    events.push_back(std::move(event));
}

// Forgets the one that is gone for the longest time.
bool WatchList::MakeRoom() {
    const auto oldest =
        std::min_element(m_entries.begin(), m_entries.end(), [](const Entry& a, const Entry& b) {
            return std::pair(!a.gone, std::cref(a.lastSeen).get()) <
                   std::pair(!b.gone, std::cref(b.lastSeen).get());
        });
    if (oldest == m_entries.end() || !oldest->gone) {
        return false;
    }
    m_entries.erase(oldest);
    return true;
}

void WatchList::Forget(const std::string& time) {
    std::erase_if(m_entries,
                  [&](const Entry& entry) { return entry.gone && entry.lastSeen < time; });
}

std::vector<Device> WatchList::Devices() const {
    std::vector<Device> devices;
    for (const Entry& entry : m_entries) {
        if (!entry.gone) {
            devices.push_back(entry.device);
        }
    }
    return devices;
}

std::size_t WatchList::Count() const {
    return static_cast<std::size_t>(std::count_if(m_entries.begin(), m_entries.end(),
                                                  [](const Entry& entry) { return !entry.gone; }));
}

}  // namespace Lanscout
