#include "tools/lanscout/output/reporter.h"

#include <fmt/core.h>

#include <cstring>
#include <stdexcept>
#include <utility>

#include "finder/text/safetext.h"
#include "tools/lanscout/output/progressline.h"

namespace Lanscout {
namespace {

// The library's levels up to this one tell of failures.
constexpr int kLastFailureLevel = 3;

}  // namespace

Reporter::Reporter(const Means& means, Live live)
    : m_console(means.console),
      m_settings(means.settings),
      m_live(live),
      m_outputs(MakeOutputs(means)) {}

void Reporter::OnDevice(const DeviceEvent& event) {
    m_changed = true;
    if (m_live == Live::All) {
        Tell(event);
    }
}

void Reporter::Tell(const DeviceEvent& event) {
    for (const auto& output : m_outputs) {
        output->OnEvent(event);
    }
}

void Reporter::OnProblem(const Problem& problem) {
    if (!m_settings.quiet || problem.weight == Problem::Weight::Error) {
        m_console.Say(ProblemText(problem));
    }
}

void Reporter::OnLogLine(int level, std::string_view text) {
    if (m_settings.verbose > (level <= kLastFailureLevel ? 0 : 1)) {
        m_console.Say(ForDisplay(text));
    }
}

void Reporter::OnProgress(std::span<const Device> devices, const Progress& progress) {
    for (const auto& output : m_outputs) {
        output->OnProgress(devices, progress);
    }
    if (m_console.CanDraw()) {
        std::vector<std::string> lines = Block(devices);
        lines.push_back(ProgressLine(progress, devices.size(), m_console.DrawWidth()));
        m_console.Draw(lines);
    }
}

std::vector<std::string> Reporter::Block(std::span<const Device> devices) {
    std::vector<std::string> lines;
    if (m_live != Live::Counted) {
        const bool changed = std::exchange(m_changed, false);
        for (const auto& output : m_outputs) {
            const Room room{m_console.DrawWidth(),
                            m_console.DrawHeight() - 1 - static_cast<int>(lines.size())};
            const auto block = output->Block(room, devices, changed);
            lines.insert(lines.end(), block.begin(), block.end());
        }
    }
    return lines;
}

void Reporter::EndSearch(const Report& report) {
    ForEach([&](Output& output) { output.EndSearch(report); });
}

void Reporter::EndComparison(const Report& report, const Comparison& comparison) {
    ForEach([&](Output& output) { output.EndComparison(report, comparison); });
}

void Reporter::EndRound(const Report& report) {
    ForEach([&](Output& output) { output.EndRound(report); });
}

// A result that could not be written is as good as none.
void Reporter::ForEach(const std::function<void(Output&)>& tell) {
    m_console.Erase();
    for (const auto& output : m_outputs) {
        tell(*output);
        if (m_console.OutputError() != 0) {
            throw std::runtime_error(
                fmt::format("cannot write the result: {}", std::strerror(m_console.OutputError())));
        }
    }
}

}  // namespace Lanscout
