// What comes out of the finder: what becomes of the list, and what came of a search.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "finder/device/changes.h"
#include "finder/machine/problem.h"
#include "finder/source/source.h"

namespace Lanscout {

struct DeviceEvent {
    enum class What {
        // Of a running search:
        Found,
        Updated,    // more is known of it
        Withdrawn,  // it was another one's second row: what is known since says that they are one
        // Between the rounds of a watch:
        Appeared,
        Gone,
        Returned,
        Moved,    // its address changed, among others perhaps
        Changed,  // also of a comparison
        // Of a comparison with an earlier list:
        Missing,
        New,
    };

    What what = What::Found;
    std::size_t number = 0;  // of Found, Updated, Withdrawn: tells the devices of one search apart
    std::string time;        // ISO 8601, UTC
    Device device;
    std::vector<FieldChange> changes;  // of Moved, Changed and Returned
    std::string lastSeen;              // of Gone and Returned: when it was last heard before
};

// "found", "gone": the name in JSON.
const char* WhatText(DeviceEvent::What what);

Json EventToJson(const DeviceEvent& event);

// How far a search is.
struct Progress {
    double elapsedSeconds = 0;
    double expectedSeconds = 0;
    std::size_t running = 0;  // processes that have not ended
};

enum class Outcome {
    Done,         // came to its end
    Failed,       // could not be done
    CutShort,     // took too long and was ended
    Interrupted,  // ended by the user
};

// "onvif", "upnp", "mqtt", or empty where a source only adds to what others find.
const char* ProtocolName(Work work);

const char* OutcomeText(Outcome outcome);

// What one source made of one address.
struct SearchReport {
    Target target;  // an empty address: single addresses were asked, from no particular one of ours
    SourceId source = SourceId::Probes;
    Work work = Work::Onvif;
    Outcome outcome = Outcome::Done;
};

struct Report {
    std::string started;  // ISO 8601, UTC
    std::string finished;
    double seconds = 0;
    std::vector<SearchReport> searches;
    std::vector<Problem> problems;
    std::vector<Device> devices;

    // For each address each kind of work was done to its end by one source at least, so that what
    // is missing was not there.
    bool IsComplete() const;

    // At least one search was not a failure from the start.
    bool HasSearched() const;

    bool WasInterrupted() const;
};

// The whole result as JSON; the schema (ReportSchema) describes it.
Json ReportToJson(const Report& report);

}  // namespace Lanscout
