#include "tools/lanscout/output/eventtext.h"

#include <fmt/core.h>

#include <utility>

#include "finder/text/safetext.h"
#include "tools/lanscout/output/tablelayout.h"

namespace Lanscout {
namespace {

using What = DeviceEvent::What;

// An address and a MAC address have a usual width; what follows them need not be aligned.
constexpr int kMainWidth = 17;

bool IsTimed(const DeviceEvent& event) {
    return !event.time.empty();
}

}  // namespace

std::vector<std::string> MainTexts(const Device& device) {
    std::vector<std::string> texts;
    for (const Field& field : Fields()) {
        if (IsInEveryTable(field)) {
            const std::string text = ForDisplay(ShownText(field, device));
            texts.push_back(text.empty() ? kNotKnown : text);
        }
    }
    return texts;
}

std::vector<DeviceEvent> EventsOf(const Comparison& comparison) {
    std::vector<DeviceEvent> events;
    const auto add = [&](What what, const Device& device, std::vector<FieldChange> changes) {
        DeviceEvent event;
        event.what = what;
        event.device = device;
        event.changes = std::move(changes);
        events.push_back(std::move(event));
    };
    for (const Device& device : comparison.missing) {
        add(What::Missing, device, {});
    }
    for (const Device& device : comparison.added) {
        add(What::New, device, {});
    }
    for (const ChangedDevice& changed : comparison.changed) {
        add(What::Changed, changed.after, changed.changes);
    }
    return events;
}

std::string EventDetails(const DeviceEvent& event) {
    if (event.what == What::Gone || event.what == What::Returned) {
        const std::string seen = event.lastSeen.empty() ? "" : "last seen " + event.lastSeen;
        const std::string changes = ChangesText(event.changes);
        return changes.empty() || seen.empty() ? seen + changes : seen + "; " + changes;
    }
    return ChangesText(event.changes);
}

std::string EventLine(const DeviceEvent& event) {
    std::string line = IsTimed(event) ? event.time + "  " : "";
    line += fmt::format("{:<8}", WhatText(event.what));
    for (const std::string& text : MainTexts(event.device)) {
        line += "  " + FitAtLeast(text, kMainWidth);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    const std::string details = EventDetails(event);
    return details.empty() ? line : line + "  (" + details + ")";
}

}  // namespace Lanscout
