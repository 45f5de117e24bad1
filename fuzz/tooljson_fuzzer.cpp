// An earlier result, as JSON, that the tool is given to compare with.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "fuzz/check.h"
#include "tools/lanscout/compare.h"
#include "tools/lanscout/devicejson.h"

namespace {

using LanscoutTool::Device;
using LanscoutTool::Json;

bool IsHarmless(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](unsigned char character) {
        return (character >= 0x20 && character < 0x7F) || character == '\n';
    });
}

void CheckDevice(const Device& device) {
    const Json json = LanscoutTool::DeviceToJson(device);
    const std::string line = LanscoutTool::DumpLine(json);
    Check(IsHarmless(line) && line.find('\n') + 1 == line.size(), "a device is one line of ASCII");
    Check(IsHarmless(LanscoutTool::DumpDocument(json)), "a document is ASCII");
    const std::optional<Device> again = LanscoutTool::DeviceFromJson(Json::parse(line));
    Check(again.has_value() && *again == device, "what is written reads back the same");
}

void CheckComparison(const LanscoutTool::Comparison& comparison) {
    for (const bool aligned : {false, true}) {
        const std::string text = LanscoutTool::ComparisonText(comparison, aligned);
        Check(std::none_of(text.begin(), text.end(),
                           [](unsigned char c) {
                               return (c < 0x20 && c != '\n' && c != '\t') || c == 0x7F;
                           }),
              "a comparison has no control characters");
    }
    Check(IsHarmless(LanscoutTool::DumpDocument(LanscoutTool::ComparisonToJson(comparison))),
          "a comparison's document is ASCII");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto read =
        LanscoutTool::DevicesFromDocument({reinterpret_cast<const char*>(data), size});
    if (const auto* const problem = std::get_if<std::string>(&read)) {
        Check(IsHarmless(*problem), "what is wrong is said in ASCII");
        return 0;
    }
    const auto& devices = std::get<std::vector<Device>>(read);
    for (const Device& device : devices) {
        CheckDevice(device);
    }
    CheckComparison(LanscoutTool::Compare(devices, {}));
    CheckComparison(LanscoutTool::Compare(devices, {devices.rbegin(), devices.rend()}));
    return 0;
}
