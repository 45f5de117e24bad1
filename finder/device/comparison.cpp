#include "finder/device/comparison.h"

#include <fmt/format.h>

#include <optional>

#include "finder/device/identity.h"

namespace Lanscout {
namespace {

Json DevicesToJson(const std::vector<Device>& devices) {
    Json json = Json::array();
    for (const Device& device : devices) {
        json.push_back(DeviceToJson(device));
    }
    return json;
}

}  // namespace

Comparison Compare(const std::vector<Device>& before, const std::vector<Device>& after) {
    const std::vector<std::optional<std::size_t>> partners = MatchDevices(before, after);
    std::vector<bool> taken(after.size());
    Comparison comparison;
    for (std::size_t i = 0; i < before.size(); ++i) {
        if (!partners[i]) {
            comparison.missing.push_back(before[i]);
            continue;
        }
        const Device& partner = after[*partners[i]];
        taken[*partners[i]] = true;
        std::vector<FieldChange> changes = ChangesBetween(before[i], partner);
        if (!changes.empty()) {
            comparison.changed.push_back({before[i], partner, std::move(changes)});
        }
    }
    for (std::size_t i = 0; i < after.size(); ++i) {
        if (!taken[i]) {
            comparison.added.push_back(after[i]);
        }
    }
    return comparison;
}

std::variant<std::vector<Device>, std::string> DevicesFromDocument(std::string_view text) {
    const Json document = Json::parse(text, nullptr, false);
    if (!document.is_object()) {
        return "it is not a JSON document";
    }
    const auto list = document.find("devices");
    if (list == document.end() || !list->is_array()) {
        return "it has no list of devices, so lanscout --json did not write it";
    }
    std::vector<Device> devices;
    for (const Json& one : *list) {
        std::optional<Device> device = DeviceFromJson(one);
        if (!device) {
            return fmt::format("its device number {} has no IP address", devices.size() + 1);
        }
        devices.push_back(std::move(*device));
    }
    return devices;
}

Json ComparisonToJson(const Comparison& comparison) {
    Json json;
    json["same"] = comparison.IsSame();
    json["missing"] = DevicesToJson(comparison.missing);
    json["new"] = DevicesToJson(comparison.added);
    json["changed"] = Json::array();
    for (const ChangedDevice& changed : comparison.changed) {
        json["changed"].push_back(
            {{"device", DeviceToJson(changed.after)}, {"changes", ChangesToJson(changed.changes)}});
    }
    return json;
}

}  // namespace Lanscout
