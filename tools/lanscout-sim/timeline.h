// What is to happen at which second of a run.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/lanscout-sim/base/timepoint.h"
#include "tools/lanscout-sim/jsonreader.h"

namespace lansim {

class Stage;

enum class Deed { Join, Leave, Move, Rename, Mute, Unmute };

struct TimelineEvent {
    double atSeconds = 0;
    std::string device;
    Deed deed = Deed::Leave;
    std::string value;  // the new address or name
};

// One entry of a scenario's timeline. Throws SetupError that names the member.
TimelineEvent ReadTimelineEvent(JsonReader& reader);

// Plays the events on the stage.
class Timeline {
public:
    Timeline(std::vector<TimelineEvent> events, TimePoint start);

    std::optional<TimePoint> NextDue() const;
    // What cannot be done is said on standard error, and the rest goes on.
    void Run(Stage& stage, TimePoint now);

private:
    TimePoint DueOf(const TimelineEvent& event) const;

    std::vector<TimelineEvent> m_events;  // by time
    std::size_t m_next = 0;
    TimePoint m_start;
};

}  // namespace lansim
