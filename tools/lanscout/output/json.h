// The format `json`: one JSON document at the end.
#pragma once

#include <memory>

#include "tools/lanscout/output/outputs.h"

namespace Lanscout {

class JsonOutput : public Output {
public:
    explicit JsonOutput(const Means& means) : m_console(means.console) {}
    static std::unique_ptr<Output> Make(const Means& means);

    void EndSearch(const Report& report) override;
    void EndComparison(const Report& report, const Comparison& comparison) override;

private:
    Console& m_console;  // NOLINT: lives as long as the program
};

}  // namespace Lanscout
