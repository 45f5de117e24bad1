// What one site publishes: the letters for the present list, and which of them are news.
#pragma once

#include <chrono>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "finder/event.h"
#include "tools/lanscout/publish/letter.h"

namespace Lanscout {

struct SiteSettings {
    std::string name;
    bool homeAssistant = false;
    std::chrono::seconds interval{30};    // of the watch
    std::vector<std::string> interfaces;  // that are searched; empty: all

    bool operator==(const SiteSettings&) const = default;
};

// A device of the watch's list.
struct ListedDevice {
    Device device;
    std::string lastSeen;  // ISO 8601, UTC
    bool gone = false;
};

// The devices' names in topics, in the same order: the MAC address, else the id, else the IP
// address; with the next of them behind it where several devices have one.
std::vector<std::string> DeviceIds(std::span<const ListedDevice> list);

class Publication {
public:
    explicit Publication(SiteSettings settings) : m_settings(std::move(settings)) {}

    // What the broker is to be told after a round: what it has not been told before. Who is no
    // longer in the list is forgotten.
    std::vector<Letter> Update(const Report& report, std::span<const ListedDevice> list);

    Letter Event(const DeviceEvent& event) const;

    // All that is to be kept, for a broker that has been told nothing.
    std::vector<Letter> All() const;

private:
    struct Kept {
        std::string payload;
        std::string essence;  // what has to differ for it to be news
    };

    using Letters = std::map<std::string, Kept>;  // by topic

    void AddDevice(const ListedDevice& listed, const std::string& id, Letters& letters) const;
    void AddHomeAssistant(const ListedDevice& listed, const std::string& id,
                          Letters& letters) const;
    std::string InfoPayload() const;

    SiteSettings m_settings;
    Letters m_kept;
};

}  // namespace Lanscout
