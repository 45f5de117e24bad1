// What the user sees of a search: what the formats write, and what is the same for all of them,
// problems, log lines and a progress line.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "tools/lanscout/output/outputs.h"

namespace Lanscout {

// What of a running search's devices is shown before its end.
enum class Live {
    All,      // drawn in a terminal, and told to the formats
    Drawn,    // only the end is of interest
    Counted,  // not even drawn: another search follows
};

class Reporter : public Observer {
public:
    Reporter(const Means& means, Live live);

    // An event that is none of a running search.
    void Tell(const DeviceEvent& event);

    void OnDevice(const DeviceEvent& event) override;
    void OnProblem(const Problem& problem) override;
    void OnLogLine(int level, std::string_view text) override;
    void OnProgress(std::span<const Device> devices, const Progress& progress) override;

    // One of these at the end, the devices in the order of --sort. They throw std::runtime_error
    // when the result could not be written.
    void EndSearch(const Report& report);
    void EndComparison(const Report& report, const Comparison& comparison);
    void EndRound(const Report& report);

private:
    std::vector<std::string> Block(std::span<const Device> devices);
    void ForEach(const std::function<void(Output&)>& tell);

    Console& m_console;                // NOLINT: lives as long as the program
    const OutputSettings& m_settings;  // NOLINT
    Live m_live;
    bool m_changed = true;
    std::vector<std::unique_ptr<Output>> m_outputs;
};

}  // namespace Lanscout
