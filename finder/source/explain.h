// From an errno value of a search to words that help.
#pragma once

#include "finder/source/message.h"

namespace Lanscout {

// WS-Discovery's port.
inline constexpr int kDiscoveryPort = 3702;

// That UDP port (0: any free one) of the target's address could not be bound.
FailureMessage ExplainBind(const Target& target, int error, int port = kDiscoveryPort);

// A Probe could not be sent from the target's address.
FailureMessage ExplainSend(const Target& target, int error);

// Neither of these.
FailureMessage ExplainOther(const Target& target, const char* what, int error);

}  // namespace Lanscout
