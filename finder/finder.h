// The interface of the finder: a request in, events out.
//
//     class Show : public Lanscout::Observer { ... };
//     Show show;
//     Lanscout::Request request;
//     const Lanscout::Report report = Lanscout::RunSearch(request, {}, show);
//
// Everything that strangers wrote is read in child processes. One thread calls RunSearch, and the
// observer is called on it.
#pragma once

#include <functional>
#include <span>
#include <string_view>

#include "finder/event.h"

namespace Lanscout {

// Hears of a search while it runs.
class Observer {
public:
    virtual ~Observer() = default;

    // The list has changed: Found, Updated or Withdrawn.
    virtual void OnDevice(const DeviceEvent& event) = 0;

    // Told once for each problem, however many sources meet it.
    virtual void OnProblem(const Problem& problem) = 0;

    // A line of the library's log.
    virtual void OnLogLine(int level, std::string_view text) = 0;

    // Several times a second. The devices are in no particular order.
    virtual void OnProgress(std::span<const Device> devices, const Progress& progress) = 0;
};

// What wakes the search up beside its sources.
struct Wake {
    int fd = -1;                       // polled for reading; negative: none
    std::function<bool()> wantsToEnd;  // called whenever fd can be read; true ends the search
};

// Searches to the end of the request's time, or until it is told to end, and returns what came of
// it, the devices sorted by address. Never throws for what the network does. To be called while
// the process has one thread only: it forks.
Report RunSearch(const Request& request, const Wake& wake, Observer& observer);

}  // namespace Lanscout
