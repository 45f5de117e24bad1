#include "finder/source/description.h"

#include <algorithm>
#include <cctype>

#include "finder/text/addresstext.h"
#include "finder/text/safetext.h"
#include "finder/text/untrustedxml.h"
#include "finder/text/url.h"

namespace Lanscout {
namespace {

// Real descriptions have a few kilobytes. libxml2 compares the attributes of an element each with
// each, so that a longer one could keep a search busy.
constexpr std::size_t kLongestDescriptionBytes = std::size_t{64} * 1024;

std::string Lower(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

// The fourth of "urn:DOMAIN:device:TYPE:VERSION"; empty for another shape.
std::string TypeName(std::string_view deviceType) {
    for (int i = 0; i < 3; ++i) {
        const auto colon = deviceType.find(':');
        if (colon == std::string_view::npos) {
            return {};
        }
        deviceType.remove_prefix(colon + 1);
    }
    return std::string(deviceType.substr(0, deviceType.find(':')));
}

void ReadDevice(const xmlNode* element, const std::string& base, Device& device) {
    device.name = TextOf(ChildNamed(element, "friendlyName"));
    device.maker = TextOf(ChildNamed(element, "manufacturer"));
    device.model = TextOf(ChildNamed(element, "modelName"));
    device.deviceType = TextOf(ChildNamed(element, "deviceType"));
    device.udn = TextOf(ChildNamed(element, "UDN"));
    device.serial = TextOf(ChildNamed(element, "serialNumber"));
    device.kind = KindOfDeviceType(device.deviceType);
    if (device.kind == Kind::Unknown) {
        device.kind = KindOfModelDescription(TextOf(ChildNamed(element, "modelDescription")));
    }
    device.page = ResolvePage(TextOf(ChildNamed(element, "presentationURL")), base);
}

}  // namespace

Kind KindOfDeviceType(std::string_view deviceType) {
    constexpr std::string_view kStandard = "urn:schemas-upnp-org:device:";
    const std::string name = Lower(TypeName(deviceType));
    if (name.find("camera") != std::string::npos) {
        return Kind::Camera;
    }
    // The standard types say what a device is, but for these two; a maker's own types say nothing.
    const bool standard = deviceType.substr(0, kStandard.size()) == kStandard;
    return standard && !name.empty() && name != "basic" && name != "manageabledevice"
               ? Kind::Other
               : Kind::Unknown;
}

Kind KindOfModelDescription(std::string_view text) {
    const std::string words = Lower(text);
    const auto network = words.find("network");
    const bool camera =
        words.find("ip camera") != std::string::npos ||
        (network != std::string::npos && words.find("camera", network) != std::string::npos);
    return camera ? Kind::Camera : Kind::Unknown;
}

std::string ResolvePage(const std::string& reference, const std::string& base) {
    if (reference.empty()) {
        return {};
    }
    const std::optional<Url> url = ResolveUrl(reference, base);
    if (!url || url->text.size() > kLongestKeptBytes) {
        return {};
    }
    const bool plain = std::all_of(url->text.begin(), url->text.end(), [](unsigned char c) {
        return c > 0x20 && c < 0x7F && c != '"' && c != '<' && c != '>' && c != '\\' && c != '`';
    });
    return plain ? url->text : std::string();
}

std::optional<Device> ReadDescription(std::string_view xml, const std::string& location) {
    const std::optional<Url> url = ReadUrl(location);
    if (!url || !IsIpv4Text(url->host)) {
        return std::nullopt;
    }
    Device device;
    device.protocols.upnp = true;
    device.ip = url->host;
    device.descriptionUrl = ToKeptText(location);
    const bool readable = xml.size() <= kLongestDescriptionBytes;
    if (const XmlDoc doc = readable ? ReadUntrustedXml(xml) : nullptr) {
        const xmlNode* const root = xmlDocGetRootElement(doc.get());
        const std::string urlBase = TextOf(ChildNamed(root, "URLBase"));
        ReadDevice(ChildNamed(root, "device"), urlBase.empty() ? location : urlBase, device);
    }
    return device;
}

}  // namespace Lanscout
