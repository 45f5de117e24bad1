// What one source knows of one device at one moment.
#pragma once

#include "finder/device/device.h"

namespace Lanscout {

// The sources, in the order in which their word counts where two know the same field.
enum class SourceId {
    Probes,         // whole replies to the finder's own Probes
    CameraSearch,   // the records of the library's camera search
    UpnpSearch,     // the library's UPnP search
    Frames,         // the frames that replies came in
    Neighbours,     // the kernel's neighbour table
    Announcements,  // Hello and Bye
    Sites,          // what other lanscouts publish
};

struct Sighting {
    SourceId source = SourceId::Probes;
    Target via;     // where it was heard; an empty address: by no particular one of ours
    Device device;  // what is not known is empty; seenVia and the times are the inventory's
};

}  // namespace Lanscout
