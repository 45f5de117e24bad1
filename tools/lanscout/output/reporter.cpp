#include "tools/lanscout/output/reporter.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <map>
#include <utility>

#include "finder/device/columns.h"
#include "host/zellog.h"
#include "tools/lanscout/output/formats.h"
#include "tools/lanscout/output/progressline.h"
#include "tools/lanscout/output/table.h"

namespace Lanscout {
namespace {

std::string Joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}

std::string SearchedText(const Report& report) {
    std::vector<std::string> places;
    for (const SearchReport& search : report.searches) {
        std::string place =
            search.target.interface.empty()
                ? search.target.address
                : fmt::format("{} ({})", search.target.interface, search.target.address);
        if (std::find(places.begin(), places.end(), place) == places.end()) {
            places.push_back(std::move(place));
        }
    }
    return fmt::format("{}", fmt::join(places, ", "));
}

class TableReporter : public Reporter {
public:
    using Reporter::Reporter;

    void OnFound(const DeviceTable& /*table*/, DeviceTable::Result /*result*/) override {
        m_changed = true;
    }

    void End(const Report& report) override {
        if (!report.devices.empty()) {
            m_console.Output(Joined(LayOutTable(report.devices, Style(m_console.OutputWidth()))));
        }
        if (!m_options.quiet && report.HasSearched()) {
            m_console.Say(SummaryText(report));
        }
    }

protected:
    std::vector<std::string> BlockLines(const DeviceTable& table, int height) override {
        if (!m_console.IsTerminal() || table.Devices().empty() || height < 3) {
            return {};
        }
        const std::pair size(height, m_console.DrawWidth());
        if (std::exchange(m_changed, false) || size != m_size) {
            m_lines = LayOutBlock(table, height);
            m_size = size;
        }
        return m_lines;
    }

private:
    std::vector<std::string> LayOutBlock(const DeviceTable& table, int height) const {
        std::vector<Device> devices = table.Devices();
        SortDevices(devices, m_options.sort);
        const auto room = static_cast<std::size_t>(height) - 2;  // heading and the line below
        const std::size_t hidden = devices.size() > room ? devices.size() - room : 0;
        devices.resize(devices.size() - hidden);
        std::vector<std::string> lines = LayOutTable(devices, Style(m_console.DrawWidth()));
        lines.push_back(hidden > 0 ? FitWidth(fmt::format("and {} more", hidden),
                                              std::min(m_console.DrawWidth(), 20))
                                   : "");
        return lines;
    }

    TableStyle Style(int width) const {
        return {width, m_console.HasColour(), m_console.TextCharset()};
    }

    bool m_changed = false;
    std::pair<int, int> m_size;
    std::vector<std::string> m_lines;
};

// A line a device as soon as there is little to add: both searches found it and its MAC address, or
// the slower one has had the time to.
class PlainReporter : public Reporter {
public:
    using Reporter::Reporter;

    void OnFound(const DeviceTable& table, DeviceTable::Result result) override {
        if (result.change == DeviceTable::Change::Added) {
            m_waiting[result.index] = {table.Devices()[result.index], m_elapsed};
        } else if (const auto waiting = m_waiting.find(result.index); waiting != m_waiting.end()) {
            waiting->second.device = table.Devices()[result.index];
        }
    }

    void OnProgress(const DeviceTable& table, const Progress& progress) override {
        m_elapsed = progress.elapsedSeconds;
        if (!m_options.sortGiven) {
            Write(progress.running == 0);
        }
        Reporter::OnProgress(table, progress);
    }

    void End(const Report& report) override {
        if (!m_options.sortGiven) {
            return Write(true);
        }
        for (const Device& device : report.devices) {
            m_console.Output(PlainLine(device) + "\n");
        }
    }

private:
    // The camera search has MAC addresses after the network has been quiet for three seconds.
    static constexpr double kSettleSeconds = 5;

    struct Waiting {
        Device device;
        double since = 0;
    };

    bool IsSettled(const Waiting& waiting) const {
        const Device& device = waiting.device;
        const bool foundBothWays = (device.onvif || !m_options.onvif) &&
                                   (device.upnp || !m_options.upnp) && !device.mac.empty();
        return foundBothWays || m_elapsed - waiting.since >= kSettleSeconds;
    }

    void Write(bool all) {
        for (auto at = m_waiting.begin(); at != m_waiting.end();) {
            if (all || IsSettled(at->second)) {
                m_console.Output(PlainLine(at->second.device) + "\n");
                at = m_waiting.erase(at);
            } else {
                ++at;
            }
        }
    }

    std::map<std::size_t, Waiting> m_waiting;  // by index in the table
    double m_elapsed = 0;
};

class JsonlReporter : public Reporter {
public:
    using Reporter::Reporter;

    void OnFound(const DeviceTable& table, DeviceTable::Result result) override {
        const bool added = result.change == DeviceTable::Change::Added;
        m_console.Output(DumpLine({{"event", added ? "found" : "updated"},
                                   {"device", DeviceToJson(table.Devices()[result.index])}}));
    }

    void End(const Report& report) override {
        Json end = ReportToJson(report);
        end.erase("devices");
        m_console.Output(DumpLine({{"event", "end"}, {"search", std::move(end)}}));
    }
};

class JsonReporter : public Reporter {
public:
    using Reporter::Reporter;
    void End(const Report& report) override {
        m_console.Output(DumpDocument(ReportToJson(report)));
    }
};

class ProgressReporter : public Reporter {
public:
    using Reporter::Reporter;
    void End(const Report& /*report*/) override {}
};

class CsvReporter : public Reporter {
public:
    using Reporter::Reporter;
    void End(const Report& report) override { m_console.Output(CsvDocument(report.devices)); }
};

}  // namespace

void Reporter::OnProblem(const Problem& problem) {
    if (!m_options.quiet || problem.weight == Problem::Weight::Error) {
        m_console.Say(ProblemText(problem));
    }
}

void Reporter::OnLibraryLine(int level, std::string_view line) {
    if (m_options.verbose > (level <= LOG_LEVEL_NOTICE ? 0 : 1)) {
        m_console.Say(ForDisplay(line));
    }
}

void Reporter::OnProgress(const DeviceTable& table, const Progress& progress) {
    if (!m_console.CanDraw()) {
        return;
    }
    std::vector<std::string> lines = BlockLines(table, m_console.DrawHeight() - 1);
    lines.push_back(ProgressLine(progress, table.Devices().size(), m_console.DrawWidth()));
    m_console.Draw(lines);
}

std::string SummaryText(const Report& report) {
    const auto cameras = std::count_if(report.devices.begin(), report.devices.end(),
                                       [](const Device& one) { return one.kind == Kind::Camera; });
    std::string text =
        report.devices.empty() ? "No device answered" : Counted(report.devices.size(), "device");
    if (cameras > 0) {
        text += fmt::format(" ({})", Counted(static_cast<std::size_t>(cameras), "camera"));
    }
    text += fmt::format(" on {} in {:.1f} s", SearchedText(report), report.seconds);
    return report.WasInterrupted() ? text + ", interrupted" : text;
}

std::unique_ptr<Reporter> MakeProgressReporter(const Options& options, Console& console) {
    return std::make_unique<ProgressReporter>(options, console);
}

std::unique_ptr<Reporter> MakeReporter(const Options& options, Console& console) {
    switch (options.format) {
        case Format::Plain:
            return std::make_unique<PlainReporter>(options, console);
        case Format::Json:
            return std::make_unique<JsonReporter>(options, console);
        case Format::Jsonl:
            return std::make_unique<JsonlReporter>(options, console);
        case Format::Csv:
            return std::make_unique<CsvReporter>(options, console);
        case Format::Auto:
        case Format::Table:
            break;
    }
    return std::make_unique<TableReporter>(options, console);
}

}  // namespace Lanscout
