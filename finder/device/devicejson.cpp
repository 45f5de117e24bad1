#include "finder/device/devicejson.h"

#include <algorithm>

#include "finder/text/addresstext.h"

namespace Lanscout {
namespace {

template <typename IsUsable>
void KeepUsable(std::vector<std::string>& list, IsUsable isUsable) {
    std::erase_if(list, [&](const std::string& text) { return !isUsable(text); });
}

// Whether what is left is an address that the device can be told by.
bool KeepUsableAddresses(Device& device) {
    KeepUsable(device.otherIps, IsIpv4Text);
    KeepUsable(device.ipv6, IsIpv6Text);
    return device.ip.empty() ? !device.ipv6.empty() : IsIpv4Text(device.ip);
}

}  // namespace

Json DeviceToJson(const Device& device) {
    Json json;
    for (const Field& field : Fields()) {
        json[field.name] = FieldToJson(field, device);
    }
    return json;
}

Json KnownToJson(const Device& device) {
    Json json = Json::object();
    for (const Field& field : Fields()) {
        if (IsKnown(field, device)) {
            json[field.name] = FieldToJson(field, device);
        }
    }
    return json;
}

std::optional<Device> DeviceFromJson(const Json& json) {
    if (!json.is_object()) {
        return std::nullopt;
    }
    Device device;
    for (const Field& field : Fields()) {
        if (const auto found = json.find(field.name); found != json.end()) {
            FieldFromJson(field, *found, device);
        }
    }
    if (!KeepUsableAddresses(device)) {
        return std::nullopt;
    }
    return device;
}

Json DeviceSchema() {
    Json properties;
    Json required = Json::array();
    for (const Field& field : Fields()) {
        properties[field.name] = FieldSchema(field);
        required.push_back(field.name);
    }
    return {{"type", "object"},
            {"properties", std::move(properties)},
            {"required", std::move(required)},
            {"additionalProperties", false}};
}

std::string DumpLine(const Json& json) {
    return json.dump(-1, ' ', true, Json::error_handler_t::replace) + "\n";
}

std::string DumpDocument(const Json& json) {
    return json.dump(2, ' ', true, Json::error_handler_t::replace) + "\n";
}

}  // namespace Lanscout
