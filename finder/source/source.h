// A source hears of devices in one way. It runs in a child process (what it reads was written by
// strangers), and all that leaves it are messages to the parent. It knows no other source.
//
// A new source is a pair of files with one operation like the run below, and a line in the list in
// sources.cpp.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "finder/device/sighting.h"
#include "finder/source/request.h"
#include "finder/source/sender.h"

namespace Lanscout {

// What a source contributes. A result is complete when for every address each kind of work that
// was asked for was done by one source at least.
enum class Work {
    Onvif,
    Upnp,
    Sites,  // what other lanscouts have found
    Macs,   // only adds to what others find: its failure is a notice
};

// One child process of a source.
struct Job {
    std::vector<Target> targets;  // the addresses to search from
    int number = 0;               // tells the processes of one source apart
    Request request;
};

struct Source {
    SourceId id;
    const char* name;  // in problems and reports
    Work work;
    bool processForEachTarget;  // or one for all of them

    // Whether the request wants it and this machine and user can have it.
    bool (*wanted)(const Request& request);

    // Runs in the child until the request's time is over, then sends a DoneMessage and returns; to
    // return without one is a failure. A target that cannot be searched is reported with a
    // FailureMessage and does not end the others. An exception is a failure of all targets.
    void (*run)(const Job& job, Sender& sender);
};

// The list of sources.
std::span<const Source> Sources();

const char* SourceName(SourceId id);

}  // namespace Lanscout
