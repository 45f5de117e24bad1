#include "tools/lanscout-sim/timeline.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "tools/lanscout-sim/base/setuperror.h"
#include "tools/lanscout-sim/base/shown.h"
#include "tools/lanscout-sim/network/address.h"
#include "tools/lanscout-sim/stage.h"

namespace lansim {
namespace {

constexpr double kLongestRunSeconds = 1e6;

std::optional<Deed> ParseDeed(const std::string& text) {
    static const std::vector<std::pair<std::string, Deed>> kDeeds = {
        {"join", Deed::Join},     {"leave", Deed::Leave}, {"move", Deed::Move},
        {"rename", Deed::Rename}, {"mute", Deed::Mute},   {"unmute", Deed::Unmute}};
    const auto found = std::ranges::find(kDeeds, text, &std::pair<std::string, Deed>::first);
    return found == kDeeds.end() ? std::nullopt : std::optional(found->second);
}

void Do(const TimelineEvent& event, Stage& stage, TimePoint now) {
    switch (event.deed) {
        case Deed::Join:
            return stage.Join(event.device, now);
        case Deed::Leave:
            return stage.Leave(event.device, now);
        case Deed::Move:
            stage.Change(event.device, {{"ip", event.value}}, now);
            return;
        case Deed::Rename:
            stage.Change(event.device, {{"name", event.value}}, now);
            return;
        case Deed::Mute:
        case Deed::Unmute:
            stage.Change(event.device, {{"muted", event.deed == Deed::Mute}}, now);
            return;
    }
}

}  // namespace

TimelineEvent ReadTimelineEvent(JsonReader& reader) {
    TimelineEvent event;
    if (!reader.Has("at") || !reader.Has("device") || !reader.Has("do")) {
        reader.Fail("must have \"at\", \"device\" and \"do\"");
    }
    reader.ReadNumber("at", event.atSeconds, 0, kLongestRunSeconds);
    reader.Read("device", event.device);
    reader.ReadText("do", event.deed, ParseDeed, "join, leave, move, rename, mute or unmute");
    std::string ip;
    std::string name;
    reader.Read("ip", ip);
    reader.Read("name", name);
    if (event.deed == Deed::Move && !ParseIpv4(ip)) {
        reader.Fail("ip", fmt::format("\"{}\" is not the IPv4 address to move to", ip));
    }
    if (event.deed == Deed::Rename && name.empty()) {
        reader.Fail("name", "is missing");
    }
    reader.RefuseUnknownKeys();
    event.value = event.deed == Deed::Move ? ip : name;
    return event;
}

Timeline::Timeline(std::vector<TimelineEvent> events, TimePoint start)
    : m_events(std::move(events)), m_start(start) {
    std::ranges::stable_sort(m_events, {}, &TimelineEvent::atSeconds);
}

TimePoint Timeline::DueOf(const TimelineEvent& event) const {
    return m_start + std::chrono::duration_cast<TimePoint::duration>(
                         std::chrono::duration<double>(event.atSeconds));
}

std::optional<TimePoint> Timeline::NextDue() const {
    return m_next == m_events.size() ? std::nullopt : std::optional(DueOf(m_events[m_next]));
}

void Timeline::Run(Stage& stage, TimePoint now) {
    for (; m_next < m_events.size() && DueOf(m_events[m_next]) <= now; ++m_next) {
        try {
            Do(m_events[m_next], stage, now);
        } catch (const SetupError& error) {
            fmt::print(stderr, "lanscout-sim: timeline, second {}: {}\n",
                       m_events[m_next].atSeconds, Shown(error.what()));
        }
    }
}

}  // namespace lansim
