#include "tools/lanscout/output/plain.h"

#include <fmt/core.h>

#include "finder/device/fields.h"
#include "finder/text/safetext.h"
#include "tools/lanscout/output/eventtext.h"
#include "tools/lanscout/output/summary.h"
#include "tools/lanscout/output/tablelayout.h"

namespace Lanscout {
namespace {

// A line cannot be taken back: it is written when nothing has been added for so long.
constexpr double kSettleSeconds = 2;

std::string OrDash(const std::string& text) {
    return text.empty() ? "-" : text;
}

// What happened, the fields that every table shows, and details.
std::string DifferenceLine(const DeviceEvent& event) {
    std::string line = WhatText(event.what);
    for (const std::string& text : MainTexts(event.device)) {
        line += "\t" + (text == kNotKnown ? "-" : text);
    }
    return line + "\t" + OrDash(EventDetails(event)) + "\n";
}

}  // namespace

std::string PlainLine(const Device& device) {
    std::string line;
    for (const Field& field : Fields()) {
        if (field.csv) {
            line += (line.empty() ? "" : "\t") + OrDash(ForDisplay(ShownText(field, device)));
        }
    }
    return line;
}

std::unique_ptr<Output> PlainOutput::Make(const Means& means) {
    return std::make_unique<PlainOutput>(means);
}

void PlainOutput::OnEvent(const DeviceEvent& event) {
    switch (event.what) {
        case DeviceEvent::What::Found:
        case DeviceEvent::What::Updated:
        case DeviceEvent::What::Withdrawn:
            return TakeFound(event);
        default:
            m_console.Output(fmt::format("{}\t{}\t{}\t{}\n", event.time, WhatText(event.what),
                                         OrDash(EventDetails(event)), PlainLine(event.device)));
    }
}

void PlainOutput::TakeFound(const DeviceEvent& event) {
    if (event.what == DeviceEvent::What::Withdrawn) {
        m_waiting.erase(event.number);
    } else if (event.what == DeviceEvent::What::Found || m_waiting.contains(event.number)) {
        m_waiting[event.number] = {event.device, m_elapsed};
    }
}

void PlainOutput::OnProgress(std::span<const Device> /*devices*/, const Progress& progress) {
    m_elapsed = progress.elapsedSeconds;
    if (!m_settings.sortGiven) {
        Write(progress.running == 0);
    }
}

void PlainOutput::Write(bool all) {
    for (auto at = m_waiting.begin(); at != m_waiting.end();) {
        if (all || m_elapsed - at->second.since >= kSettleSeconds) {
            m_console.Output(PlainLine(at->second.device) + "\n");
            at = m_waiting.erase(at);
        } else {
            ++at;
        }
    }
}

void PlainOutput::EndSearch(const Report& report) {
    if (!m_settings.sortGiven) {
        return Write(true);
    }
    for (const Device& device : report.devices) {
        m_console.Output(PlainLine(device) + "\n");
    }
}

void PlainOutput::EndComparison(const Report& report, const Comparison& comparison) {
    for (const DeviceEvent& event : EventsOf(comparison)) {
        m_console.Output(DifferenceLine(event));
    }
    if (!m_settings.quiet) {
        m_console.Say(DifferencesText(comparison) + "; now " + SummaryText(report));
    }
}

}  // namespace Lanscout
