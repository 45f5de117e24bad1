// An earlier result, as JSON, that the tool is given to compare with.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "finder/device/comparison.h"
#include "finder/device/devicejson.h"
#include "fuzz/check.h"

namespace {

using Lanscout::Device;
using Lanscout::Json;

bool IsHarmless(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](unsigned char character) {
        return (character >= 0x20 && character < 0x7F) || character == '\n';
    });
}

void CheckDevice(const Device& device) {
    const Json json = Lanscout::DeviceToJson(device);
    const std::string line = Lanscout::DumpLine(json);
    Check(IsHarmless(line) && line.find('\n') + 1 == line.size(), "a device is one line of ASCII");
    Check(IsHarmless(Lanscout::DumpDocument(json)), "a document is ASCII");
    const std::optional<Device> again = Lanscout::DeviceFromJson(Json::parse(line));
    Check(again.has_value() && *again == device, "what is written reads back the same");
}

void CheckComparison(const Lanscout::Comparison& comparison) {
    for (const Lanscout::ChangedDevice& changed : comparison.changed) {
        const std::string text = Lanscout::ChangesText(changed.changes);
        Check(std::none_of(text.begin(), text.end(),
                           [](unsigned char c) {
                               return (c < 0x20 && c != '\n' && c != '\t') || c == 0x7F;
                           }),
              "a comparison has no control characters");
    }
    Check(IsHarmless(Lanscout::DumpDocument(Lanscout::ComparisonToJson(comparison))),
          "a comparison's document is ASCII");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto read = Lanscout::DevicesFromDocument({reinterpret_cast<const char*>(data), size});
    if (const auto* const problem = std::get_if<std::string>(&read)) {
        Check(IsHarmless(*problem), "what is wrong is said in ASCII");
        return 0;
    }
    const auto& devices = std::get<std::vector<Device>>(read);
    for (const Device& device : devices) {
        CheckDevice(device);
    }
    CheckComparison(Lanscout::Compare(devices, {}));
    CheckComparison(Lanscout::Compare(devices, {devices.rbegin(), devices.rend()}));
    return 0;
}
