#include "finder/device/device.h"

namespace Lanscout {

const char* KindText(Kind kind) {
    switch (kind) {
        case Kind::Camera:
            return "camera";
        case Kind::Other:
            return "other";
        case Kind::Unknown:
            break;
    }
    return "unknown";
}

const char* ProtocolText(Protocol protocol) {
    return protocol == Protocol::Onvif ? "onvif" : "upnp";
}

std::string ProtocolsText(const Device& device) {
    if (device.onvif && device.upnp) {
        return "onvif,upnp";
    }
    if (device.onvif) {
        return "onvif";
    }
    return device.upnp ? "upnp" : "";
}

const std::string& ShownMaker(const Device& device) {
    return device.maker.empty() ? device.macMaker : device.maker;
}

}  // namespace Lanscout
