// libupnp's client without its threads and sockets: the calls are wrapped at the link
// (CMakeLists.txt), and whoever has the callback registered is told of devices by hand.
#pragma once

namespace FakeUpnp {

// What libupnp delivers for a search reply with this Location, on the calling thread. The result is
// the callback's.
int DeliverSearchResult(const char* location);

}  // namespace FakeUpnp
