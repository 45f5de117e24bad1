// The format `table`: for people; in a terminal it grows while the search runs.
#pragma once

#include <memory>

#include "tools/lanscout/output/outputs.h"

namespace Lanscout {

class TableOutput : public Output {
public:
    explicit TableOutput(const Means& means)
        : m_console(means.console), m_settings(means.settings) {}
    static std::unique_ptr<Output> Make(const Means& means);

    void OnEvent(const DeviceEvent& event) override;
    std::vector<std::string> Block(const Room& room, std::span<const Device> devices,
                                   bool changed) override;
    void EndSearch(const Report& report) override;
    void EndComparison(const Report& report, const Comparison& comparison) override;

private:
    std::vector<std::string> LayOutBlock(const Room& room, std::span<const Device> devices) const;

    Console& m_console;                // NOLINT: lives as long as the program
    const OutputSettings& m_settings;  // NOLINT
    Room m_room;
    std::vector<std::string> m_lines;
};

}  // namespace Lanscout
