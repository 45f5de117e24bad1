// --html: the result as one page for a browser, made from page.html.
#pragma once

#include <memory>
#include <string>

#include "tools/lanscout/output/outputs.h"

namespace Lanscout {

// One self-contained HTML document. Its policy lets nothing run or load but what the page itself
// brings; what devices said stands in it as data alone.
std::string PageDocument(const Report& report);

class HtmlOutput : public Output {
public:
    explicit HtmlOutput(const Means& means) : m_means(means) {}
    static std::unique_ptr<Output> Make(const Means& means);

    // Throw std::runtime_error when the page cannot be written.
    void EndSearch(const Report& report) override;
    void EndComparison(const Report& report, const Comparison& comparison) override;

    // A watch goes on without its page; that is said once for each reason.
    void EndRound(const Report& report) override;

private:
    void Write(const Report& report) const;

    Means m_means;
    std::string m_failure;
};

}  // namespace Lanscout
