// The format `plain`: one line per device, its fields between tabs, for programs and pipes.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "tools/lanscout/output/outputs.h"

namespace Lanscout {

// A device as one line, its fields between tabs in the order of Fields(), "-" where one is empty.
std::string PlainLine(const Device& device);

class PlainOutput : public Output {
public:
    explicit PlainOutput(const Means& means)
        : m_console(means.console), m_settings(means.settings) {}
    static std::unique_ptr<Output> Make(const Means& means);

    void OnEvent(const DeviceEvent& event) override;
    void OnProgress(std::span<const Device> devices, const Progress& progress) override;
    void EndSearch(const Report& report) override;
    void EndComparison(const Report& report, const Comparison& comparison) override;

private:
    struct Waiting {
        Device device;
        double since = 0;
    };

    void TakeFound(const DeviceEvent& event);
    void Write(bool all);

    Console& m_console;                        // NOLINT: lives as long as the program
    const OutputSettings& m_settings;          // NOLINT
    std::map<std::size_t, Waiting> m_waiting;  // by the event's number
    double m_elapsed = 0;
};

}  // namespace Lanscout
