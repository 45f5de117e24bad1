// What one format writes, and when. A new format is a pair of files with a class like this, and a
// line in the list in outputs.cpp.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "finder/device/comparison.h"
#include "finder/finder.h"

namespace Lanscout {

// Columns and lines that may be drawn on.
struct Room {
    int width = 0;
    int height = 0;

    bool operator==(const Room&) const = default;
};

class Output {
public:
    Output() = default;
    virtual ~Output() = default;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    // Something became of the list: of a running search, or between the rounds of a watch.
    virtual void OnEvent(const DeviceEvent& /*event*/) {}

    // Several times a second while a search runs.
    virtual void OnProgress(std::span<const Device> /*devices*/, const Progress& /*progress*/) {}

    // Lines to draw above the progress line of a terminal while a search runs.
    virtual std::vector<std::string> Block(const Room& /*room*/,
                                           std::span<const Device> /*devices*/, bool /*changed*/) {
        return {};
    }

    // One of these at the end of a search, its devices in the order of --sort. A watch goes on
    // after a round; the report then has what is there, also what this round has missed.
    virtual void EndSearch(const Report& /*report*/) {}
    virtual void EndComparison(const Report& /*report*/, const Comparison& /*comparison*/) {}
    virtual void EndRound(const Report& /*report*/) {}
};

}  // namespace Lanscout
