#include "finder/device/identity.h"

#include <unordered_map>

namespace Lanscout {
namespace {

using Key = std::string (*)(const Device&);

std::string MacKey(const Device& device) {
    return device.mac;
}

// Behind a repeater many devices have one MAC address, and are told apart by their IP address.
std::string MacAndIpKey(const Device& device) {
    return device.mac.empty() ? "" : device.mac + " " + device.ip;
}

std::string UdnKey(const Device& device) {
    return device.udn;
}

std::string IpKey(const Device& device) {
    return device.ip;
}

class Matcher {
public:
    Matcher(const std::vector<Device>& before, const std::vector<Device>& after)
        : m_before(before), m_after(after), m_partnerOf(before.size()), m_taken(after.size()) {
        for (const Key key : {&MacAndIpKey, &MacKey, &UdnKey, &IpKey}) {
            Match(key);
        }
    }

    std::vector<std::optional<std::size_t>> Partners() const { return m_partnerOf; }

private:
    void Match(Key key) {
        std::unordered_multimap<std::string, std::size_t> open;
        for (std::size_t i = 0; i < m_after.size(); ++i) {
            if (!m_taken[i] && !key(m_after[i]).empty()) {
                open.emplace(key(m_after[i]), i);
            }
        }
        for (std::size_t i = 0; i < m_before.size(); ++i) {
            if (m_partnerOf[i] || key(m_before[i]).empty()) {
                continue;
            }
            const auto same = open.equal_range(key(m_before[i]));
            for (auto at = same.first; at != same.second; ++at) {
                if (key != &IpKey || !Contradict(m_before[i].mac, m_after[at->second].mac)) {
                    m_partnerOf[i] = at->second;
                    m_taken[at->second] = true;
                    open.erase(at);
                    break;
                }
            }
        }
    }

    static bool Contradict(const std::string& a, const std::string& b) {
        return !a.empty() && !b.empty() && a != b;
    }

    const std::vector<Device>& m_before;
    const std::vector<Device>& m_after;
    std::vector<std::optional<std::size_t>> m_partnerOf;
    std::vector<bool> m_taken;
};

void Note(std::vector<FieldChange>& changes, const char* field, const std::string& before,
          const std::string& after) {
    if (!before.empty() && !after.empty() && before != after) {
        changes.push_back({field, before, after});
    }
}

std::string KnownKind(const Device& device) {
    return device.kind == Kind::Unknown ? "" : KindText(device.kind);
}

// The port means one thing where the camera search found the device and another where it did not.
std::string ComparablePort(const Device& device, const Device& other) {
    return device.onvif == other.onvif && device.port != 0 ? std::to_string(device.port) : "";
}

}  // namespace

std::vector<std::optional<std::size_t>> MatchDevices(const std::vector<Device>& before,
                                                     const std::vector<Device>& after) {
    return Matcher(before, after).Partners();
}

std::vector<FieldChange> ChangesBetween(const Device& before, const Device& after) {
    std::vector<FieldChange> changes;
    Note(changes, "ip", before.ip, after.ip);
    Note(changes, "port", ComparablePort(before, after), ComparablePort(after, before));
    Note(changes, "hardware", before.hardware, after.hardware);
    Note(changes, "mac", before.mac, after.mac);
    Note(changes, "kind", KnownKind(before), KnownKind(after));
    Note(changes, "name", before.name, after.name);
    Note(changes, "maker", before.maker, after.maker);
    Note(changes, "model", before.model, after.model);
    Note(changes, "page", before.page, after.page);
    return changes;
}

}  // namespace Lanscout
