#include "finder/source/onvifdevice.h"

#include "finder/text/safetext.h"

namespace Lanscout {

Device OnvifDevice(const std::string& ip, int port, const std::string& hardware, Kind kind) {
    Device device;
    device.protocols.onvif = true;
    device.ip = ip;
    device.port = port;
    device.kind = kind;
    // Scopes are URIs; the library undoes the encoding of spaces alone.
    device.hardware = ToKeptText(DecodePercent(hardware));
    return device;
}

}  // namespace Lanscout
