// The list of sources.
#include <algorithm>
#include <array>

#include "finder/machine/packetsocket.h"
#include "finder/source/camerasearch.h"
#include "finder/source/frames.h"
#include "finder/source/neighbours.h"
#include "finder/source/probes.h"
#include "finder/source/sites.h"
#include "finder/source/source.h"
#include "finder/source/upnpsearch.h"

namespace Lanscout {
namespace {

bool WantsOnvif(const Request& request) {
    return request.onvif;
}

bool WantsUpnp(const Request& request) {
    return request.upnp;
}

bool WantsMacs(const Request& /*request*/) {
    return true;
}

bool WantsFrames(const Request& request) {
    return request.onvif && MayOpenPacketSockets();
}

bool WantsSites(const Request& request) {
    return request.sites.has_value();
}

constexpr bool kEachTarget = true;
constexpr bool kOneProcess = false;

constexpr std::array kSources{
    Source{SourceId::Probes, "probes", Work::Onvif, kOneProcess, &WantsOnvif, &RunProbes},
    Source{SourceId::CameraSearch, "camerasearch", Work::Onvif, kOneProcess, &WantsOnvif,
           &RunCameraSearch},
    Source{SourceId::UpnpSearch, "upnpsearch", Work::Upnp, kEachTarget, &WantsUpnp, &RunUpnpSearch},
    Source{SourceId::Sites, "sites", Work::Sites, kOneProcess, &WantsSites, &RunSites},
    Source{SourceId::Frames, "frames", Work::Macs, kOneProcess, &WantsFrames, &RunFrames},
    Source{SourceId::Neighbours, "neighbours", Work::Macs, kOneProcess, &WantsMacs, &RunNeighbours},
};

}  // namespace

std::span<const Source> Sources() {
    return kSources;
}

const char* SourceName(SourceId id) {
    const auto found = std::find_if(kSources.begin(), kSources.end(),
                                    [&](const Source& source) { return source.id == id; });
    return found == kSources.end() ? "" : found->name;
}

}  // namespace Lanscout
