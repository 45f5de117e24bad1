// Something that went wrong, in words for the user.
#pragma once

#include <string>

#include "finder/device/device.h"

namespace Lanscout {

struct Problem {
    enum class Weight {
        Notice,  // the result is less than it could be
        Error,   // this search could not be done, or not to its end
    };

    Weight weight = Weight::Error;
    Target target;         // empty where it concerns no single one
    std::string protocol;  // "onvif", "upnp" or empty
    std::string what;      // what failed
    std::string remedy;    // what to do; may be empty

    bool operator==(const Problem&) const = default;
};

// One line without its line end, fit to be shown.
std::string ProblemText(const Problem& problem);

}  // namespace Lanscout
