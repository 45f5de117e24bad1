#include "finder/device/devicejson.h"

#include <arpa/inet.h>

#include <array>
#include <cstdint>
#include <limits>
#include <utility>

#include "finder/text/safetext.h"

namespace Lanscout {
namespace {

struct TextMember {
    const char* name;
    std::string Device::*member;
};

constexpr std::array kTextMembers{TextMember{"hardware", &Device::hardware},
                                  TextMember{"mac", &Device::mac},
                                  TextMember{"macMaker", &Device::macMaker},
                                  TextMember{"name", &Device::name},
                                  TextMember{"maker", &Device::maker},
                                  TextMember{"model", &Device::model},
                                  TextMember{"page", &Device::page},
                                  TextMember{"deviceType", &Device::deviceType},
                                  TextMember{"udn", &Device::udn},
                                  TextMember{"location", &Device::location},
                                  TextMember{"firstSeen", &Device::firstSeen}};

constexpr std::size_t kMostListed = 64;

Json TextOrNull(const std::string& text) {
    return text.empty() ? Json() : Json(text);
}

std::string TextAt(const Json& json, const char* name) {
    const auto found = json.find(name);
    return found != json.end() && found->is_string()
               ? ToKeptText(found->get_ref<const std::string&>())
               : std::string();
}

const Json* ArrayAt(const Json& json, const char* name) {
    const auto found = json.find(name);
    return found != json.end() && found->is_array() && found->size() <= kMostListed ? &*found
                                                                                    : nullptr;
}

bool IsIpv4(const std::string& text) {
    in_addr address{};
    // inet_pton reads up to a zero byte, behind which anything may stand.
    return text.find('\0') == std::string::npos && inet_pton(AF_INET, text.c_str(), &address) == 1;
}

int PortFrom(const Json& json) {
    const auto found = json.find("port");
    if (found == json.end() || !found->is_number_integer()) {
        return 0;
    }
    if (found->is_number_unsigned()) {
        const auto value = found->get<std::uint64_t>();
        return std::in_range<int>(value) ? static_cast<int>(value) : 0;
    }
    const auto value = found->get<std::int64_t>();
    return std::in_range<int>(value) ? static_cast<int>(value) : 0;
}

Kind KindFrom(const std::string& text) {
    if (text == "camera") {
        return Kind::Camera;
    }
    return text == "other" ? Kind::Other : Kind::Unknown;
}

void ReadLists(const Json& json, Device& device) {
    if (const Json* others = ArrayAt(json, "otherIps")) {
        for (const Json& other : *others) {
            if (other.is_string() && IsIpv4(other.get_ref<const std::string&>())) {
                device.otherIps.push_back(other.get<std::string>());
            }
        }
    }
    if (const Json* protocols = ArrayAt(json, "protocols")) {
        for (const Json& protocol : *protocols) {
            device.onvif = device.onvif || protocol == "onvif";
            device.upnp = device.upnp || protocol == "upnp";
        }
    }
    if (const Json* seenVia = ArrayAt(json, "seenVia")) {
        for (const Json& via : *seenVia) {
            if (via.is_object()) {
                device.seenVia.push_back({TextAt(via, "interface"), TextAt(via, "address")});
            }
        }
    }
}

}  // namespace

Json DeviceToJson(const Device& device) {
    Json json;
    json["ip"] = device.ip;
    json["otherIps"] = device.otherIps;
    json["port"] = device.port;
    json["protocols"] = Json::array();
    if (device.onvif) {
        json["protocols"].push_back("onvif");
    }
    if (device.upnp) {
        json["protocols"].push_back("upnp");
    }
    json["kind"] = KindText(device.kind);
    for (const TextMember& text : kTextMembers) {
        json[text.name] = TextOrNull(device.*text.member);
    }
    json["seenVia"] = Json::array();
    for (const Target& via : device.seenVia) {
        json["seenVia"].push_back({{"interface", via.interface}, {"address", via.address}});
    }
    return json;
}

std::optional<Device> DeviceFromJson(const Json& json) {
    if (!json.is_object()) {
        return std::nullopt;
    }
    Device device;
    device.ip = TextAt(json, "ip");
    if (!IsIpv4(device.ip)) {
        return std::nullopt;
    }
    device.port = PortFrom(json);
    device.kind = KindFrom(TextAt(json, "kind"));
    for (const TextMember& text : kTextMembers) {
        device.*text.member = TextAt(json, text.name);
    }
    ReadLists(json, device);
    return device;
}

std::string DumpLine(const Json& json) {
    return json.dump(-1, ' ', true, Json::error_handler_t::replace) + "\n";
}

std::string DumpDocument(const Json& json) {
    return json.dump(2, ' ', true, Json::error_handler_t::replace) + "\n";
}

}  // namespace Lanscout
