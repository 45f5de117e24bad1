#include "finder/event.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include "finder/device/devicejson.h"

namespace Lanscout {
namespace {

Json TextOrNull(const std::string& text) {
    return text.empty() ? Json() : Json(text);
}

Json SearchToJson(const SearchReport& search) {
    return {{"protocol", ProtocolName(search.work)},
            {"source", SourceName(search.source)},
            {"interface", search.target.interface},
            {"address", search.target.address},
            {"outcome", OutcomeText(search.outcome)}};
}

Json ProblemToJson(const Problem& problem) {
    return {{"weight", problem.weight == Problem::Weight::Error ? "error" : "notice"},
            {"protocol", TextOrNull(problem.protocol)},
            {"interface", TextOrNull(problem.target.interface)},
            {"address", TextOrNull(problem.target.address)},
            {"what", problem.what},
            {"remedy", TextOrNull(problem.remedy)}};
}

template <typename T, typename Convert>
Json ListToJson(const std::vector<T>& list, Convert convert) {
    Json json = Json::array();
    for (const T& one : list) {
        json.push_back(convert(one));
    }
    return json;
}

bool TellsChanges(DeviceEvent::What what) {
    return what == DeviceEvent::What::Moved || what == DeviceEvent::What::Changed ||
           what == DeviceEvent::What::Returned;
}

}  // namespace

const char* WhatText(DeviceEvent::What what) {
    using What = DeviceEvent::What;
    switch (what) {
        case What::Found:
            return "found";
        case What::Updated:
            return "updated";
        case What::Withdrawn:
            return "withdrawn";
        case What::Appeared:
            return "appeared";
        case What::Gone:
            return "gone";
        case What::Returned:
            return "returned";
        case What::Moved:
            return "moved";
        case What::Changed:
            return "changed";
        case What::Missing:
            return "missing";
        case What::New:
            break;
    }
    return "new";
}

Json EventToJson(const DeviceEvent& event) {
    Json json{{"event", WhatText(event.what)}};
    if (!event.time.empty()) {
        json["time"] = event.time;
    }
    if (!event.lastSeen.empty()) {
        json["lastSeen"] = event.lastSeen;
    }
    if (TellsChanges(event.what) && !event.changes.empty()) {
        json["changes"] = ChangesToJson(event.changes);
    }
    json["device"] = DeviceToJson(event.device);
    return json;
}

const char* ProtocolName(Work work) {
    switch (work) {
        case Work::Onvif:
            return "onvif";
        case Work::Upnp:
            return "upnp";
        case Work::Sites:
            return "mqtt";
        case Work::Macs:
            break;
    }
    return "";
}

const char* OutcomeText(Outcome outcome) {
    switch (outcome) {
        case Outcome::Done:
            return "done";
        case Outcome::Failed:
            return "failed";
        case Outcome::CutShort:
            return "cut short";
        case Outcome::Interrupted:
            break;
    }
    return "interrupted";
}

bool Report::IsComplete() const {
    std::map<std::pair<Target, Work>, bool> done;
    for (const SearchReport& search : searches) {
        bool& one = done[{search.target, search.work}];
        one = one || search.outcome == Outcome::Done;
    }
    return !done.empty() && !WasInterrupted() &&
           std::all_of(done.begin(), done.end(), [](const auto& entry) { return entry.second; });
}

bool Report::HasSearched() const {
    return std::any_of(searches.begin(), searches.end(), [](const SearchReport& search) {
        return search.outcome != Outcome::Failed;
    });
}

bool Report::WasInterrupted() const {
    return std::any_of(searches.begin(), searches.end(), [](const SearchReport& search) {
        return search.outcome == Outcome::Interrupted;
    });
}

Json ReportToJson(const Report& report) {
    Json json;
    json["lanscout"] = LANSCOUT_VERSION;
    json["started"] = report.started;
    json["finished"] = report.finished;
    json["seconds"] = std::round(report.seconds * 10) / 10;
    json["complete"] = report.IsComplete();
    json["searches"] = ListToJson(report.searches, SearchToJson);
    json["problems"] = ListToJson(report.problems, ProblemToJson);
    json["devices"] = ListToJson(report.devices, DeviceToJson);
    return json;
}

}  // namespace Lanscout
