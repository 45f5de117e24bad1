#include "tools/lanscout/output/jsonl.h"

#include <utility>

#include "finder/device/devicejson.h"

namespace Lanscout {

std::unique_ptr<Output> JsonlOutput::Make(const Means& means) {
    return std::make_unique<JsonlOutput>(means);
}

void JsonlOutput::OnEvent(const DeviceEvent& event) {
    m_console.Output(DumpLine(EventToJson(event)));
}

void JsonlOutput::EndSearch(const Report& report) {
    Json end = ReportToJson(report);
    end.erase("devices");
    m_console.Output(DumpLine({{"event", "end"}, {"search", std::move(end)}}));
}

}  // namespace Lanscout
