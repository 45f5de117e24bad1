#include "tools/lanscout/output/progressline.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>

#include "tools/lanscout/output/summary.h"

namespace Lanscout {
namespace {

constexpr int kWidestBar = 40;
constexpr int kNarrowestBar = 5;

std::string Bar(double share, int width) {
    const int done = std::clamp(static_cast<int>(share * width), 0, width);
    return "[" + std::string(static_cast<std::size_t>(done), '#') +
           std::string(static_cast<std::size_t>(width - done), '-') + "]";
}

}  // namespace

std::string ProgressLine(const Progress& progress, std::size_t devices, int width) {
    const double left = progress.expectedSeconds - progress.elapsedSeconds;
    const std::string time = left > 0 ? fmt::format("{:.0f} s left", std::ceil(left))
                                      : std::string("waiting for the last answers");
    const std::string text = fmt::format("{}, {}", time, Counted(devices, "device"));
    const int bar = std::min(kWidestBar, width - static_cast<int>(text.size()) - 3);
    const double share =
        progress.expectedSeconds > 0 ? progress.elapsedSeconds / progress.expectedSeconds : 1;
    const std::string line = bar < kNarrowestBar ? text : Bar(share, bar) + " " + text;
    return line.substr(0, static_cast<std::size_t>(std::max(width, 0)));
}

}  // namespace Lanscout
