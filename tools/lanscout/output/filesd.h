// The devices as targets for Prometheus: its file-based service discovery, in JSON.
#pragma once

#include <memory>
#include <string>

#include "tools/lanscout/output/outputs.h"

namespace Lanscout {

// A list of one target group a device: its address, with the port where one is known, and what else
// is known of it as labels __meta_lanscout_NAME.
std::string FileSdDocument(const Report& report);

class FileSdOutput : public Output {
public:
    explicit FileSdOutput(const Means& means) : m_means(means) {}
    static std::unique_ptr<Output> Make(const Means& means);

    // Throw std::runtime_error when the file cannot be written.
    void EndSearch(const Report& report) override;
    void EndComparison(const Report& report, const Comparison& comparison) override;

    // A watch goes on without its file; that is said once for each reason.
    void EndRound(const Report& report) override;

private:
    Means m_means;
    std::string m_failure;
};

}  // namespace Lanscout
