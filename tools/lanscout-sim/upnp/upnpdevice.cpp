#include "tools/lanscout-sim/upnp/upnpdevice.h"

#include <fmt/format.h>

#include "tools/lanscout-sim/base/xmltext.h"

namespace lansim {
namespace {

constexpr const char* kPath = "/description.xml";
// Documentation addresses (RFC 5737), in nobody's network.
constexpr const char* kElsewhere = "203.0.113.7";

}  // namespace

std::string TypeOf(const UpnpDevice& device) {
    return device.kind.starts_with("urn:")
               ? device.kind
               : fmt::format("urn:schemas-upnp-org:device:{}:1", device.kind);
}

std::string LocationOf(const UpnpDevice& device, unsigned number) {
    const std::string ip = ToText(device.ip);
    using enum Misbehaviour;
    if (device.Does(UpnpLocationNoPath)) {
        return fmt::format("http://{}:{}", ip, device.port);
    }
    if (device.Does(UpnpLocationNoPort)) {
        return fmt::format("http://{}{}", ip, kPath);
    }
    if (device.Does(UpnpLocationOtherSubnet)) {
        return fmt::format("http://{}:{}{}", kElsewhere, device.port, kPath);
    }
    if (device.Does(UpnpLocationLoopback)) {
        return fmt::format("http://127.0.0.1:{}{}", device.port, kPath);
    }
    if (device.Does(UpnpLocationIpv6)) {
        return fmt::format("http://[fe80::{:x}:{:x}]:{}{}", device.ip.value >> 16,
                           device.ip.value & 0xFFFF, device.port, kPath);
    }
    if (device.Does(UpnpLocationNoUrl)) {
        return "description of this device: none";
    }
    if (device.Does(UpnpFlood)) {
        return fmt::format("http://{}:{}{}?{}", ip, device.port, kPath, number);
    }
    return fmt::format("http://{}:{}{}", ip, device.port, kPath);
}

std::string DescriptionOf(const UpnpDevice& device) {
    if (device.Does(Misbehaviour::UpnpDescriptionEmpty)) {
        return {};
    }
    if (device.Does(Misbehaviour::UpnpDescriptionNotXml)) {
        return "Welcome to the web server of this device.\n";
    }
    std::string name = EscapeXml(device.name);
    if (device.Does(Misbehaviour::UpnpDescriptionNotUtf8)) {
        name += " \xE9\xFC\xFF";  // Latin-1 in a document that says UTF-8
    }
    // The escape character makes the document ill-formed; whoever cuts the name out as text
    // meets it all the same. The other one is its form in C1, which XML allows.
    if (device.Does(Misbehaviour::UpnpMarkup)) {
        name +=
            " &lt;script&gt;alert(1)&lt;/script&gt; \x1B[31m \xC2\x9B"
            "31m";
    }
    return fmt::format(R"(<?xml version="1.0" encoding="UTF-8"?>
<root xmlns="urn:schemas-upnp-org:device-1-0">
  <specVersion><major>1</major><minor>0</minor></specVersion>
  <device>
    <deviceType>{type}</deviceType>
    <friendlyName>{name}</friendlyName>
    <manufacturer>{maker}</manufacturer>
    <modelName>{model}</modelName>
    <serialNumber>{serial}</serialNumber>
    <UDN>uuid:{uuid}</UDN>
    <presentationURL>http://{ip}/</presentationURL>
  </device>
</root>
)",
                       fmt::arg("type", EscapeXml(TypeOf(device))), fmt::arg("name", name),
                       fmt::arg("maker", EscapeXml(device.maker)),
                       fmt::arg("model", EscapeXml(device.model)),
                       fmt::arg("serial", device.uuid.substr(0, 8)), fmt::arg("uuid", device.uuid),
                       fmt::arg("ip", ToText(device.ip)));
}

}  // namespace lansim
