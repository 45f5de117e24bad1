#include "tools/lanscout/output/table.h"

#include <fmt/core.h>

#include <algorithm>

#include "finder/device/fields.h"
#include "tools/lanscout/output/eventtext.h"
#include "tools/lanscout/output/summary.h"
#include "tools/lanscout/output/tablelayout.h"

namespace Lanscout {
namespace {

constexpr int kLeastHeight = 3;  // heading, a device, the line below
constexpr int kWidestMore = 20;

std::string Joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}

}  // namespace

std::unique_ptr<Output> TableOutput::Make(const Means& means) {
    return std::make_unique<TableOutput>(means);
}

void TableOutput::OnEvent(const DeviceEvent& event) {
    switch (event.what) {
        case DeviceEvent::What::Found:
        case DeviceEvent::What::Updated:
        case DeviceEvent::What::Withdrawn:
            return;  // the block shows them, and at the end the table
        default:
            m_console.Output(EventLine(event) + "\n");
    }
}

std::vector<std::string> TableOutput::Block(const Room& room, std::span<const Device> devices,
                                            bool changed) {
    if (!m_console.IsTerminal() || devices.empty() || room.height < kLeastHeight) {
        return {};
    }
    if (changed || room != m_room) {
        m_lines = LayOutBlock(room, devices);
        m_room = room;
    }
    return m_lines;
}

std::vector<std::string> TableOutput::LayOutBlock(const Room& room,
                                                  std::span<const Device> devices) const {
    std::vector<Device> shown(devices.begin(), devices.end());
    SortDevices(shown, *FieldNamed(m_settings.sort));
    const auto rows = static_cast<std::size_t>(room.height) - 2;  // heading and the line below
    const std::size_t hidden = shown.size() > rows ? shown.size() - rows : 0;
    shown.resize(shown.size() - hidden);
    std::vector<std::string> lines =
        LayOutTable(shown, {room.width, m_console.HasColour(), m_console.TextCharset()});
    lines.push_back(
        hidden > 0 ? FitWidth(fmt::format("and {} more", hidden), std::min(room.width, kWidestMore))
                   : "");
    return lines;
}

void TableOutput::EndSearch(const Report& report) {
    if (!report.devices.empty()) {
        m_console.Output(
            Joined(LayOutTable(report.devices, {m_console.OutputWidth(), m_console.HasColour(),
                                                m_console.TextCharset()})));
    }
    if (!m_settings.quiet && report.HasSearched()) {
        m_console.Say(SummaryText(report));
    }
}

void TableOutput::EndComparison(const Report& report, const Comparison& comparison) {
    for (const DeviceEvent& event : EventsOf(comparison)) {
        m_console.Output(EventLine(event) + "\n");
    }
    if (!m_settings.quiet) {
        m_console.Say(DifferencesText(comparison) + "; now " + SummaryText(report));
    }
}

}  // namespace Lanscout
