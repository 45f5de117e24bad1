// An earlier result, as JSON, that the tool is given to compare with.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "fuzz/check.h"
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const Json json = Json::parse(text, nullptr, false);
    const auto devices = json.is_object() ? json.find("devices") : json.end();
    if (!json.is_object() || devices == json.end() || !devices->is_array()) {
        LanscoutTool::DeviceFromJson(json);
        return 0;
    }
    for (const Json& entry : *devices) {
        if (const auto device = LanscoutTool::DeviceFromJson(entry)) {
            CheckDevice(*device);
        }
    }
    return 0;
}
