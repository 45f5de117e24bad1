#include "finder/source/sitebook.h"

#include <fmt/core.h>

#include <algorithm>

#include "finder/broker/topics.h"
#include "finder/device/devicejson.h"
#include "finder/machine/clock.h"

namespace Lanscout {
namespace {

constexpr int kLongestInterval = 86400;
constexpr std::time_t kRoundsUntilOld = 3;

// One that says how long its interval is, or one that has never said.
constexpr int kUsualInterval = 60;

// What is deeper than any message of ours is none.
constexpr int kDeepest = 8;

// The object that it is, or else an empty one.
Json Parse(std::string_view payload) {
    bool tooDeep = false;
    Json json = Json::parse(
        payload,
        [&](int depth, Json::parse_event_t /*event*/, Json& /*parsed*/) {
            tooDeep = tooDeep || depth > kDeepest;
            return !tooDeep;
        },
        false);
    return tooDeep || !json.is_object() ? Json::object() : json;
}

std::optional<std::int64_t> IntegerAt(const Json& json, const char* name) {
    const auto found = json.find(name);
    if (found == json.end() || !found->is_number_integer()) {
        return std::nullopt;
    }
    return found->get<std::int64_t>();
}

std::size_t CountAt(const Json& json, const char* name) {
    constexpr std::int64_t kMost = SiteBook::kMostDevicesOfSite;
    return static_cast<std::size_t>(
        std::clamp(IntegerAt(json, name).value_or(0), std::int64_t{0}, kMost));
}

std::string TimeAt(const Json& json, const char* name) {
    const auto found = json.find(name);
    if (found == json.end() || !found->is_string() || TimeFrom(found->get<std::string>()) < 0) {
        return {};
    }
    return found->get<std::string>();
}

void KeepUsableTime(std::string& time) {
    if (TimeFrom(time) < 0) {
        time.clear();
    }
}

}  // namespace

SiteBook::Site* SiteBook::Find(const std::string& name) {
    if (const auto known = m_sites.find(name); known != m_sites.end()) {
        return &known->second;
    }
    if (m_sites.size() >= kMostSites) {
        m_full = true;
        return nullptr;
    }
    return &m_sites[name];
}

std::optional<Device> SiteBook::Take(std::string_view topic, std::string_view payload) {
    const std::optional<SitePart> part = ParseSiteTopic(topic);
    if (!part || part->part == "event") {
        return std::nullopt;
    }
    Site* const site = Find(part->site);
    if (site == nullptr) {
        return std::nullopt;
    }
    if (payload.size() > kLongestPayload) {
        ++site->unreadable;
    } else if (part->part == "status") {
        site->status = payload == "online" || payload == "offline" ? payload : "";
    } else if (part->part == "info") {
        TakeInfo(payload, *site);
    } else if (part->part == "round") {
        TakeRound(payload, *site);
    } else {
        return TakeDevice(part->site, part->id, payload, *site);
    }
    return std::nullopt;
}

void SiteBook::TakeInfo(std::string_view payload, Site& site) {
    const std::int64_t interval = IntegerAt(Parse(payload), "interval").value_or(0);
    site.interval = interval > 0 && interval <= kLongestInterval ? static_cast<int>(interval) : 0;
}

void SiteBook::TakeRound(std::string_view payload, Site& site) {
    const Json json = Parse(payload);
    site.finishedText = TimeAt(json, "finished");
    site.finished = TimeFrom(site.finishedText);
    site.hasRound = site.finished >= 0;
    site.complete = json.value("complete", Json()) != false;
    site.counted = CountAt(json, "present") + CountAt(json, "gone");
}

std::optional<Device> SiteBook::TakeDevice(const std::string& name, const std::string& id,
                                           std::string_view payload, Site& site) {
    if (payload.empty()) {
        site.ids.erase(id);
        return std::nullopt;
    }
    const Json json = Parse(payload);
    const Json state = json.value("state", Json());
    std::optional<Device> device = DeviceFromJson(json);
    if (!device || (state != "present" && state != "gone")) {
        ++site.unreadable;
        return std::nullopt;
    }
    if (!site.ids.contains(id) && site.ids.size() >= kMostDevicesOfSite) {
        return std::nullopt;
    }
    site.ids.insert(id);
    if (state == "gone") {
        return std::nullopt;
    }
    device->site = name;
    KeepUsableTime(device->firstSeen);
    KeepUsableTime(device->lastSeen);
    // A site publishes what is news; that a device is still there is none.
    device->lastSeen = std::max(device->lastSeen, site.finishedText);
    return device;
}

std::vector<std::string> SiteBook::Sites() const {
    std::vector<std::string> names;
    for (const auto& [name, site] : m_sites) {
        names.push_back(name);
    }
    return names;
}

bool SiteBook::IsComplete() const {
    return std::all_of(m_sites.begin(), m_sites.end(), [](const auto& entry) {
        return entry.second.ids.size() >= entry.second.counted;
    });
}

void SiteBook::AddProblems(const std::string& name, const Site& site, std::time_t now,
                           std::vector<std::string>& problems) {
    const auto interval =
        static_cast<std::time_t>(site.interval == 0 ? kUsualInterval : site.interval);
    const std::string last =
        site.hasRound ? "its last round ended at " + site.finishedText : "it has ended no round";
    if (site.status == "offline") {
        problems.push_back(fmt::format("site {} is offline; {}", name, last));
    } else if (site.hasRound && now - site.finished > kRoundsUntilOld * interval) {
        problems.push_back(fmt::format("site {} is late: {}, and one is due every {} seconds", name,
                                       last, interval));
    }
    if (site.hasRound && !site.complete) {
        problems.push_back(fmt::format("site {} could not search everywhere", name));
    }
    if (site.ids.size() < site.counted) {
        problems.push_back(
            fmt::format("site {} has {} devices, and {} of them came from the broker", name,
                        site.counted, site.ids.size()));
    }
    if (site.unreadable > 0) {
        problems.push_back(fmt::format("site {} has published {} messages that cannot be read",
                                       name, site.unreadable));
    }
}

std::vector<std::string> SiteBook::Problems(std::time_t now) const {
    std::vector<std::string> problems;
    for (const auto& [name, site] : m_sites) {
        AddProblems(name, site, now, problems);
    }
    if (m_full) {
        problems.push_back(
            fmt::format("more than {} sites publish; the others are left out", kMostSites));
    }
    return problems;
}

}  // namespace Lanscout
