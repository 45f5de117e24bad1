#include "tools/lanscout/output/outputs.h"

#include <algorithm>
#include <array>

#include "tools/lanscout/output/csv.h"
#include "tools/lanscout/output/filesd.h"
#include "tools/lanscout/output/html.h"
#include "tools/lanscout/output/json.h"
#include "tools/lanscout/output/jsonl.h"
#include "tools/lanscout/output/plain.h"
#include "tools/lanscout/output/table.h"

namespace Lanscout {
namespace {

constexpr bool kWatches = true;
constexpr bool kCompares = true;

// name, help, for a watch, for a comparison, how it is made
constexpr std::array kFormats{
    OutputFormat{"table", "A table (the default in a terminal)", kWatches, kCompares,
                 &TableOutput::Make},
    OutputFormat{"plain", "One line per device, tabs between the fields (the default elsewhere)",
                 kWatches, kCompares, &PlainOutput::Make},
    OutputFormat{"json", "One JSON document at the end", !kWatches, kCompares, &JsonOutput::Make},
    OutputFormat{"jsonl", "One JSON text per line, each written at once", kWatches, !kCompares,
                 &JsonlOutput::Make},
    OutputFormat{"csv", "Comma-separated values at the end", !kWatches, !kCompares,
                 &CsvOutput::Make},
};

}  // namespace

std::span<const OutputFormat> OutputFormats() {
    return kFormats;
}

const OutputFormat& FormatNamed(std::string_view name) {
    return *std::find_if(kFormats.begin(), kFormats.end(),
                         [&](const OutputFormat& format) { return format.name == name; });
}

std::vector<std::unique_ptr<Output>> MakeOutputs(const Means& means) {
    std::vector<std::unique_ptr<Output>> outputs;
    outputs.push_back(FormatNamed(means.settings.format).make(means));
    if (!means.settings.html.empty()) {
        outputs.push_back(HtmlOutput::Make(means));
    }
    if (!means.settings.fileSd.empty()) {
        outputs.push_back(FileSdOutput::Make(means));
    }
    return outputs;
}

}  // namespace Lanscout
