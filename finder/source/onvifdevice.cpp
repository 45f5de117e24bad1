#include "finder/source/onvifdevice.h"

#include <algorithm>
#include <string_view>

#include "finder/source/scopes.h"
#include "finder/text/addresstext.h"

namespace Lanscout {
namespace {

constexpr std::string_view kOnvifNetwork = "{http://www.onvif.org/ver10/network/wsdl}";
constexpr std::string_view kOnvifDevice = "{http://www.onvif.org/ver10/device/wsdl}Device";
// Every device of the Devices Profile for Web Services is one of these, whatever else it is.
constexpr std::string_view kProfile2006 = "{http://schemas.xmlsoap.org/ws/2006/02/devprof}Device";
constexpr std::string_view kProfile2009 =
    "{http://docs.oasis-open.org/ws-dd/ns/dpws/2009/01}Device";

enum class TypeMeaning { Nothing, OnvifDevice, Other, OtherOnvif, Camera };

TypeMeaning MeaningOf(std::string_view type) {
    if (type.starts_with(kOnvifNetwork)) {
        return type.substr(kOnvifNetwork.size()) == "NetworkVideoTransmitter"
                   ? TypeMeaning::Camera
                   : TypeMeaning::OtherOnvif;
    }
    if (type == kOnvifDevice) {
        return TypeMeaning::OnvifDevice;
    }
    const bool known = type.starts_with('{') && type != kProfile2006 && type != kProfile2009;
    return known ? TypeMeaning::Other : TypeMeaning::Nothing;
}

}  // namespace

Device OnvifDevice(const ProbeMatch& match, const ReplySender& sender) {
    Device device = ReadScopes(match.scopes);
    if (const Kind kind = KindOfTypes(match.types); kind != Kind::Unknown) {
        device.kind = kind;
    }
    device.protocols.onvif = true;
    if (IsIpv4Text(sender.address)) {
        device.ip = sender.address;
    } else {
        device.ipv6 = {sender.address};
    }
    device.reach = sender.reach;
    device.uuid = match.endpoint;
    device.types = match.types;
    device.scopes = match.scopes;
    device.xaddrs = match.xaddrs;
    device.metadataVersion = match.metadataVersion;
    if (const auto best = BestServiceAddress(match.xaddrs, sender)) {
        device.port = best->port;
        device.page = PageOf(*best);
    }
    return device;
}

Kind KindOfTypes(const std::vector<std::string>& types) {
    const auto names = [&](TypeMeaning meaning) {
        return std::any_of(types.begin(), types.end(),
                           [&](const std::string& type) { return MeaningOf(type) == meaning; });
    };
    if (names(TypeMeaning::Camera)) {
        return Kind::Camera;
    }
    // An ONVIF device may have a maker's own type beside: that says nothing.
    const bool other = names(TypeMeaning::OtherOnvif) ||
                       (names(TypeMeaning::Other) && !names(TypeMeaning::OnvifDevice));
    return other ? Kind::Other : Kind::Unknown;
}

}  // namespace Lanscout
