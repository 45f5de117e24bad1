// From an errno value of a search to words that help.
#pragma once

#include "finder/source/message.h"

namespace Lanscout {

// UDP port 3702 of the target's address could not be bound.
FailureMessage ExplainBind(const Target& target, int error);

// A Probe could not be sent from the target's address.
FailureMessage ExplainSend(const Target& target, int error);

// Neither of these.
FailureMessage ExplainOther(const Target& target, const char* what, int error);

}  // namespace Lanscout
