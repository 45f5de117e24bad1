// What the tool reads of UPnP's XML: a description document.
//
// Input: the Location up to the first line feed, the document behind it.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "finder/source/description.h"
#include "finder/text/safetext.h"
#include "fuzz/check.h"

namespace {

using Lanscout::Charset;
using Lanscout::Device;

bool IsHarmless(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](unsigned char character) {
        return character >= 0x20 && character < 0x7F;
    });
}

void CheckText(const std::string& text) {
    Check(text.size() <= Lanscout::kLongestKeptBytes, "kept text is short");
    Check(Lanscout::ToValidUtf8(text) == text, "kept text is UTF-8");
    Check(IsHarmless(Lanscout::ForDisplay(text, Charset::Ascii)), "shown text is ASCII");
    const std::string shown = Lanscout::ForDisplay(text, Charset::Utf8);
    Check(std::none_of(shown.begin(), shown.end(),
                       [](unsigned char c) { return c < 0x20 || c == 0x7F; }) &&
              shown.find("\xC2\x9B") == std::string::npos,
          "shown text has no control characters");
    Check(Lanscout::DisplayWidth(Lanscout::FitWidth(text, 20)) == 20, "a column has its width");
}

void CheckDevice(const Device& device) {
    for (const std::string* text : {&device.name, &device.maker, &device.model, &device.deviceType,
                                    &device.udn, &device.hardware}) {
        CheckText(*text);
    }
    Check(device.page.empty() || device.page.starts_with("http://") ||
              device.page.starts_with("https://"),
          "a page is an http or https URL");
    Check(std::none_of(device.page.begin(), device.page.end(),
                       [](unsigned char c) { return c <= 0x20 || c == 0x7F; }),
          "a page has no spaces or control characters");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t split = std::min(input.find('\n'), input.size());
    const std::string location(input.substr(0, split));
    const std::string_view xml = input.substr(std::min(split + 1, input.size()));
    if (const auto device = Lanscout::ReadDescription(xml, location)) {
        CheckDevice(*device);
    }
    CheckText(Lanscout::ToKeptText(input));
    return 0;
}
