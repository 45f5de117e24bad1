// What came of one round of searches.
#pragma once

#include <string>
#include <vector>

#include "finder/device/device.h"
#include "finder/machine/problem.h"

namespace Lanscout {

enum class Outcome {
    Done,         // came to its end
    Failed,       // could not be done
    CutShort,     // took too long and was ended
    Interrupted,  // ended by the user
};

const char* OutcomeText(Outcome outcome);

struct SearchReport {
    Target target;
    Protocol protocol = Protocol::Onvif;
    Outcome outcome = Outcome::Done;
};

struct Report {
    std::string started;  // ISO 8601, UTC
    std::string finished;
    double seconds = 0;
    std::vector<SearchReport> searches;
    std::vector<Problem> problems;
    std::vector<Device> devices;

    // Every search came to its end, so that what is missing was not there.
    bool IsComplete() const;

    // At least one search was not a failure from the start.
    bool HasSearched() const;

    bool WasInterrupted() const;
};

// How far a round is.
struct Progress {
    double elapsedSeconds = 0;
    double expectedSeconds = 0;
    std::size_t running = 0;  // searches that have not ended
};

}  // namespace Lanscout
