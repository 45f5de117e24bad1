// The list of formats.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/lanscout/output/console.h"
#include "tools/lanscout/output/output.h"
#include "tools/lanscout/output/settings.h"

namespace Lanscout {

// Replaces a file; what fails throws std::runtime_error with the reason.
using WriteFile = std::function<void(const std::string& path, std::string_view text)>;

// What a format may use.
struct Means {
    Console& console;
    const OutputSettings& settings;
    const WriteFile& writeFile;
};

struct OutputFormat {
    const char* name;  // as option: --name
    const char* help;
    bool watches;   // has something to say between the rounds of a watch
    bool compares;  // has something to say of a comparison
    std::unique_ptr<Output> (*make)(const Means& means);
};

// Formats of standard output, one at a time.
std::span<const OutputFormat> OutputFormats();

// The format of that name; there must be one.
const OutputFormat& FormatNamed(std::string_view name);

// The format of the settings, which is named, and the page if one is wanted.
std::vector<std::unique_ptr<Output>> MakeOutputs(const Means& means);

}  // namespace Lanscout
