// The source `camerasearch`: what the library's camera search lists.
#pragma once

#include "finder/source/source.h"

namespace Lanscout {

// One search object per address, all in this process; the library's bounded build. No program is
// started for MAC addresses: the neighbours and the frames have them without waiting.
void RunCameraSearch(const Job& job, Sender& sender);

}  // namespace Lanscout
