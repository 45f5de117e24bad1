#include "tools/lanscout/publish/publication.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <set>

#include "finder/broker/topics.h"
#include "finder/device/devicejson.h"
#include "finder/device/identity.h"

namespace Lanscout {
namespace {

// One line without its line end.
std::string Payload(const Json& json) {
    std::string text = DumpLine(json);
    text.pop_back();
    return text;
}

// What a device can be called, the best first.
std::vector<std::string> NamesOf(const Device& device) {
    std::vector<std::string> names;
    for (const std::string& name : {device.mac.empty() ? "" : IdOfMac(device.mac),
                                    SafeId(BareId(device.uuid.empty() ? device.udn : device.uuid)),
                                    SafeId(ShownAddress(device))}) {
        if (IsDeviceId(name)) {
            names.push_back(name);
        }
    }
    return names;
}

// With so many of the names, as far as there are so many.
std::string Joined(const std::vector<std::string>& names, std::size_t count) {
    std::string id;
    for (std::size_t i = 0; i < std::min(count, names.size()); ++i) {
        id += (i == 0 ? "" : "-") + names[i];
    }
    return SafeId(id);
}

constexpr std::size_t kMostNames = 3;

Json RoundPayload(const Report& report, std::size_t present, std::size_t gone) {
    Json json = ReportToJson(report);
    json.erase("devices");
    json.erase("searches");
    json["present"] = present;
    json["gone"] = gone;
    return json;
}

// A part of a topic and an id of Home Assistant's: letters, digits, - and _.
std::string HomeAssistantId(const std::string& site, const Device& device, const std::string& id) {
    // A MAC address is one device's wherever it is; another name is one site's.
    std::string text = "lanscout_" + (device.mac.empty() ? SafeId(site) + "-" + id : id);
    std::replace(text.begin(), text.end(), '.', '_');
    return text;
}

std::string FirstOf(const std::string& a, const std::string& b) {
    return a.empty() ? b : a;
}

Json HomeAssistantDevice(const Device& device, const std::string& unique) {
    Json json{{"identifiers", Json::array({unique})},
              {"name", FirstOf(FirstOf(device.name, ShownModel(device)), ShownAddress(device))}};
    if (!device.mac.empty()) {
        json["connections"] = Json::array({Json::array({"mac", device.mac})});
    }
    for (const auto& [name, value] :
         {std::pair<const char*, std::string>{"manufacturer", ShownMaker(device)},
          {"model", ShownModel(device)},
          {"serial_number", device.serial},
          {"sw_version", device.firmware},
          {"configuration_url", device.page}}) {
        if (!value.empty()) {
            json[name] = value;
        }
    }
    return json;
}

}  // namespace

std::vector<std::string> DeviceIds(std::span<const ListedDevice> list) {
    std::vector<std::vector<std::string>> names;
    names.reserve(list.size());
    for (const ListedDevice& listed : list) {
        names.push_back(NamesOf(listed.device));
    }
    std::vector<std::string> ids(list.size());
    std::set<std::string> taken;
    for (std::size_t count = 1; count <= kMostNames; ++count) {
        std::map<std::string, int> wanted;
        for (std::size_t i = 0; i < list.size(); ++i) {
            wanted[ids[i].empty() ? Joined(names[i], count) : ""] += 1;
        }
        for (std::size_t i = 0; i < list.size(); ++i) {
            std::string id = Joined(names[i], count);
            if (ids[i].empty() && wanted[id] == 1 && taken.insert(id).second) {
                ids[i] = std::move(id);
            }
        }
    }
    for (std::size_t i = 0; i < list.size(); ++i) {
        for (int number = 1; ids[i].empty(); ++number) {
            std::string id = SafeId(fmt::format("{}-{}", Joined(names[i], kMostNames), number));
            if (taken.insert(id).second) {
                ids[i] = std::move(id);
            }
        }
    }
    return ids;
}

void Publication::AddDevice(const ListedDevice& listed, const std::string& id,
                            Letters& letters) const {
    Device device = listed.device;
    device.site = m_settings.name;
    device.lastSeen = listed.lastSeen;
    Json json = DeviceToJson(device);
    json["state"] = listed.gone ? "gone" : "present";
    Kept kept{Payload(json), ""};
    if (!listed.gone) {
        json.erase("lastSeen");  // that it was heard again is no news
    }
    kept.essence = Payload(json);
    letters[SiteTopic(m_settings.name, "device/" + id)] = std::move(kept);
}

// https://www.home-assistant.io/integrations/mqtt/#mqtt-discovery
void Publication::AddHomeAssistant(const ListedDevice& listed, const std::string& id,
                                   Letters& letters) const {
    const std::string unique = HomeAssistantId(m_settings.name, listed.device, id);
    const std::string payload =
        Payload({{"name", nullptr},  // it is the device's own
                 {"unique_id", unique},
                 {"device_class", "connectivity"},
                 {"state_topic", SiteTopic(m_settings.name, "device/" + id)},
                 {"value_template", "{{ 'ON' if value_json.state == 'present' else 'OFF' }}"},
                 {"availability_topic", SiteTopic(m_settings.name, "status")},
                 {"payload_available", "online"},
                 {"payload_not_available", "offline"},
                 {"device", HomeAssistantDevice(listed.device, unique)}});
    letters["homeassistant/binary_sensor/" + unique + "/config"] = {payload, payload};
}

std::string Publication::InfoPayload() const {
    return Payload({{"lanscout", LANSCOUT_VERSION},
                    {"schema", "urn:lanscout:result:1"},
                    {"interfaces", m_settings.interfaces},
                    {"interval", m_settings.interval.count()}});
}

std::vector<Letter> Publication::Update(const Report& report, std::span<const ListedDevice> list) {
    Letters letters;
    const std::vector<std::string> ids = DeviceIds(list);
    std::size_t gone = 0;
    for (std::size_t i = 0; i < list.size(); ++i) {
        AddDevice(list[i], ids[i], letters);
        if (m_settings.homeAssistant) {
            AddHomeAssistant(list[i], ids[i], letters);
        }
        gone += list[i].gone ? 1U : 0U;
    }
    const std::string info = InfoPayload();
    letters[SiteTopic(m_settings.name, "info")] = {info, info};
    const std::string round = Payload(RoundPayload(report, list.size() - gone, gone));
    std::vector<Letter> news;
    for (const auto& [topic, one] : m_kept) {
        if (!letters.contains(topic) && topic != SiteTopic(m_settings.name, "round")) {
            news.push_back({topic, "", true, ""});
        }
    }
    for (const auto& [topic, one] : letters) {
        const auto before = m_kept.find(topic);
        if (before == m_kept.end() || before->second.essence != one.essence) {
            news.push_back({topic, one.payload, true, ""});
        }
    }
    // Last, so that who has the counts has the devices too.
    letters[SiteTopic(m_settings.name, "round")] = {round, round};
    news.push_back({SiteTopic(m_settings.name, "round"), round, true, ""});
    m_kept = std::move(letters);
    return news;
}

Letter Publication::Event(const DeviceEvent& event) const {
    DeviceEvent told = event;
    told.device.site = m_settings.name;
    const std::vector<std::string> names = NamesOf(told.device);
    return {SiteTopic(m_settings.name, "event"), Payload(EventToJson(told)), false,
            Joined(names, kMostNames)};
}

std::vector<Letter> Publication::All() const {
    std::vector<Letter> all;
    for (const auto& [topic, kept] : m_kept) {
        all.push_back({topic, kept.payload, true, ""});
    }
    return all;
}

}  // namespace Lanscout
