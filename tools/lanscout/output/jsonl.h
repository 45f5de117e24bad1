// The format `jsonl`: one JSON text per line, each written at once.
#pragma once

#include <memory>

#include "tools/lanscout/output/outputs.h"

namespace Lanscout {

class JsonlOutput : public Output {
public:
    explicit JsonlOutput(const Means& means) : m_console(means.console) {}
    static std::unique_ptr<Output> Make(const Means& means);

    void OnEvent(const DeviceEvent& event) override;
    void EndSearch(const Report& report) override;

private:
    Console& m_console;  // NOLINT: lives as long as the program
};

}  // namespace Lanscout
