#include "finder/source/description.h"

#include <arpa/inet.h>
#include <libxml/uri.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <memory>

#include "finder/text/safetext.h"
#include "finder/text/untrustedxml.h"

namespace Lanscout {
namespace {

struct FreeUri {
    void operator()(xmlURI* uri) const { xmlFreeURI(uri); }
};
using Uri = std::unique_ptr<xmlURI, FreeUri>;

struct FreeXmlText {
    void operator()(xmlChar* text) const { xmlFree(text); }
};

bool IsIpv4(const char* text) {
    in_addr address{};
    return inet_pton(AF_INET, text, &address) == 1;
}

bool IsHttp(const char* scheme) {
    return scheme != nullptr &&
           (strcasecmp(scheme, "http") == 0 || strcasecmp(scheme, "https") == 0);
}

const xmlChar* XmlText(const std::string& text) {
    return reinterpret_cast<const xmlChar*>(text.c_str());
}

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
    device.kind = KindOfDeviceType(device.deviceType);
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

std::string ResolvePage(const std::string& reference, const std::string& base) {
    if (reference.empty()) {
        return {};
    }
    const std::unique_ptr<xmlChar, FreeXmlText> absolute(
        xmlBuildURI(XmlText(reference), XmlText(base)));
    if (!absolute) {
        return {};
    }
    std::string url = reinterpret_cast<const char*>(absolute.get());
    const Uri parts(xmlParseURI(url.c_str()));
    if (!parts || !IsHttp(parts->scheme) || parts->server == nullptr || *parts->server == '\0' ||
        parts->user != nullptr || url.size() > kLongestKeptBytes) {
        return {};
    }
    // A scheme's canonical form is lower case (RFC 3986, 3.1), and what a page's address begins
    // with is looked at elsewhere.
    const std::string scheme = Lower(parts->scheme);
    url.replace(0, scheme.size(), scheme);
    const bool plain = std::all_of(url.begin(), url.end(), [](unsigned char c) {
        return c > 0x20 && c < 0x7F && c != '"' && c != '<' && c != '>' && c != '\\' && c != '`';
    });
    return plain ? url : std::string();
}

std::optional<Device> ReadDescription(std::string_view xml, const std::string& location) {
    const Uri url(xmlParseURI(location.c_str()));
    if (!url || url->server == nullptr || !IsIpv4(url->server)) {
        return std::nullopt;
    }
    Device device;
    device.protocols.upnp = true;
    device.ip = url->server;
    device.descriptionUrl = ToKeptText(location);
    if (const XmlDoc doc = ReadUntrustedXml(xml)) {
        const xmlNode* const root = xmlDocGetRootElement(doc.get());
        const std::string urlBase = TextOf(ChildNamed(root, "URLBase"));
        ReadDevice(ChildNamed(root, "device"), urlBase.empty() ? location : urlBase, device);
    }
    return device;
}

}  // namespace Lanscout
