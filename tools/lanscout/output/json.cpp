#include "tools/lanscout/output/json.h"

#include "finder/device/devicejson.h"

namespace Lanscout {

std::unique_ptr<Output> JsonOutput::Make(const Means& means) {
    return std::make_unique<JsonOutput>(means);
}

void JsonOutput::EndSearch(const Report& report) {
    m_console.Output(DumpDocument(ReportToJson(report)));
}

void JsonOutput::EndComparison(const Report& report, const Comparison& comparison) {
    Json document = ReportToJson(report);
    document["compare"] = ComparisonToJson(comparison);
    m_console.Output(DumpDocument(document));
}

}  // namespace Lanscout
