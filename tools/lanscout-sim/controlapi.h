// What may be asked of a run through its control socket.
#pragma once

#include "tools/lanscout-sim/control/controlserver.h"
#include "tools/lanscout-sim/journal.h"
#include "tools/lanscout-sim/stage.h"

namespace lansim {

// Answers one request; every mistake in it is an answer that names it. The requests are described
// in docs/simulator.md.
ControlAnswer AnswerControl(const ControlRequest& request, Stage& stage, const Journal& journal,
                            TimePoint now);

}  // namespace lansim
