#include "finder/device/identity.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <numeric>
#include <set>
#include <string_view>
#include <tuple>
#include <unordered_map>

namespace Lanscout {
namespace {

// A machine with more rows of one MAC address than this is a repeater or worse: its rows are not
// compared each with each.
constexpr std::size_t kMostComparedRows = 64;

struct Group {
    std::vector<std::size_t> members;
    std::string site;
    std::string mac;
    std::string uuid;
    std::string udn;
    std::string hardware;
    bool hasIpv4 = false;
    std::set<std::string> interfaces;
};

void TakeUnknown(std::string& known, const std::string& text) {
    if (known.empty()) {
        known = text;
    }
}

void Add(Group& group, const Marks& marks, std::size_t index) {
    group.members.push_back(index);
    group.site = marks.site;  // the same of all its members
    TakeUnknown(group.mac, marks.mac);
    TakeUnknown(group.uuid, marks.uuid);
    TakeUnknown(group.udn, marks.udn);
    TakeUnknown(group.hardware, marks.hardware);
    group.hasIpv4 = group.hasIpv4 || !IsIpv6Mark(marks.ip);
    group.interfaces.insert(marks.interface);
}

void Join(Group& to, Group& from) {
    to.members.insert(to.members.end(), from.members.begin(), from.members.end());
    TakeUnknown(to.mac, from.mac);
    TakeUnknown(to.uuid, from.uuid);
    TakeUnknown(to.udn, from.udn);
    TakeUnknown(to.hardware, from.hardware);
    to.hasIpv4 = to.hasIpv4 || from.hasIpv4;
    to.interfaces.merge(from.interfaces);
    from = Group{};
}

bool IdsContradict(const Group& a, const Group& b) {
    return Contradict(a.uuid, b.uuid) || Contradict(a.udn, b.udn);
}

// Who says more comes first, so that who says less finds the groups to join.
bool IsPlacedBefore(const Marks& a, const Marks& b) {
    const auto key = [](const Marks& marks, const bool& noMac, const bool& noUuid,
                        const bool& noUdn) {
        return std::tie(marks.site, marks.ip, noMac, noUuid, noUdn, marks.mac, marks.uuid,
                        marks.udn, marks.interface, marks.hardware);
    };
    return key(a, a.mac.empty(), a.uuid.empty(), a.udn.empty()) <
           key(b, b.mac.empty(), b.uuid.empty(), b.udn.empty());
}

std::vector<std::size_t> InPlacingOrder(std::span<const Marks> all) {
    std::vector<std::size_t> order(all.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(),
              [&](std::size_t a, std::size_t b) { return IsPlacedBefore(all[a], all[b]); });
    return order;
}

// Sightings at one address are one device's as far as nothing contradicts: one address with two
// ids is a machine with two services, with two MAC addresses it is two machines.
std::vector<Group> GroupByAddress(std::span<const Marks> all) {
    std::vector<Group> groups;
    std::size_t first = 0;  // of the groups at the present address
    const Marks* former = nullptr;
    for (const std::size_t index : InPlacingOrder(all)) {
        const Marks& marks = all[index];
        if (former == nullptr || former->ip != marks.ip || former->site != marks.site) {
            first = groups.size();
        }
        former = &marks;
        const auto found = std::find_if(groups.begin() + static_cast<std::ptrdiff_t>(first),
                                        groups.end(), [&](const Group& group) {
                                            return !Contradict(group.mac, marks.mac) &&
                                                   !Contradict(group.uuid, marks.uuid) &&
                                                   !Contradict(group.udn, marks.udn);
                                        });
        Add(found == groups.end() ? groups.emplace_back() : *found, marks, index);
    }
    return groups;
}

// One id at several addresses is one device, but with several MAC addresses they are clones: cheap
// cameras ship with one id for all. Who has that id and no known MAC address may be any of them.
void JoinById(std::vector<Group>& groups) {
    std::map<std::pair<std::string, std::string>, std::vector<std::size_t>> byId;
    for (std::size_t i = 0; i < groups.size(); ++i) {
        const std::set<std::string> ids{groups[i].uuid, groups[i].udn};
        for (const std::string& id : ids) {
            if (!id.empty()) {
                byId[{groups[i].site, id}].push_back(i);
            }
        }
    }
    std::vector<std::size_t> joinedTo(groups.size());
    std::iota(joinedTo.begin(), joinedTo.end(), std::size_t{0});
    const auto home = [&](std::size_t i) {
        while (joinedTo[i] != i) {
            i = joinedTo[i];
        }
        return i;
    };
    for (const auto& [id, indices] : byId) {
        std::map<std::string, std::size_t> homeOfMac;
        for (const std::size_t i : indices) {
            homeOfMac.try_emplace(groups[home(i)].mac, home(i));
        }
        const bool clones = homeOfMac.size() - homeOfMac.count("") > 1;
        for (const std::size_t i : indices) {
            const std::size_t from = home(i);
            const std::string& mac = groups[from].mac;
            if (mac.empty() && clones) {
                continue;
            }
            const std::size_t to =
                home(mac.empty() ? homeOfMac.rbegin()->second : homeOfMac.find(mac)->second);
            if (from != to && !IdsContradict(groups[to], groups[from])) {
                joinedTo[from] = to;
                Join(groups[to], groups[from]);
            }
        }
    }
}

bool SeenThroughOneInterface(const Group& a, const Group& b) {
    return std::any_of(a.interfaces.begin(), a.interfaces.end(),
                       [&](const std::string& one) { return b.interfaces.contains(one); });
}

// One MAC address at several addresses of one interface is a repeater, which shows its own for all
// behind it. On several interfaces, or as IPv4 and IPv6, it is one device.
bool IsOneDevice(const Group& a, const Group& b) {
    if (IdsContradict(a, b)) {
        return false;
    }
    if (!a.hasIpv4 || !b.hasIpv4) {
        return true;
    }
    return !SeenThroughOneInterface(a, b) && !Contradict(a.hardware, b.hardware);
}

void JoinByMac(std::vector<Group>& groups) {
    std::map<std::pair<std::string, std::string>, std::vector<std::size_t>> byMac;
    for (std::size_t i = 0; i < groups.size(); ++i) {
        if (!groups[i].mac.empty() && !groups[i].members.empty()) {
            byMac[{groups[i].site, groups[i].mac}].push_back(i);
        }
    }
    for (const auto& [mac, indices] : byMac) {
        const auto withIpv4 = std::count_if(indices.begin(), indices.end(),
                                            [&](std::size_t i) { return groups[i].hasIpv4; });
        if (indices.size() > kMostComparedRows) {
            continue;
        }
        for (std::size_t a = 0; a < indices.size(); ++a) {
            for (std::size_t b = a + 1; b < indices.size(); ++b) {
                Group& to = groups[indices[a]];
                Group& from = groups[indices[b]];
                // Behind a repeater nobody can tell whose an IPv6 address is.
                const bool whose = to.hasIpv4 == from.hasIpv4 || withIpv4 == 1;
                if (!to.members.empty() && !from.members.empty() && whose &&
                    IsOneDevice(to, from)) {
                    Join(to, from);
                }
            }
        }
    }
}

std::string IdOf(const Device& device) {
    return BareId(device.uuid.empty() ? device.udn : device.uuid);
}

bool IdsContradict(const Device& a, const Device& b) {
    return Contradict(BareId(a.uuid), BareId(b.uuid)) || Contradict(BareId(a.udn), BareId(b.udn));
}

// One way to tell a device again: all of its parts are known and the same, and nothing that counts
// for more contradicts.
struct Pass {
    bool mac;
    bool id;
    bool ip;
};

std::string KeyOf(const Device& device, const Pass& pass) {
    std::string key = device.site + "\n";
    for (const auto& [wanted, text] :
         {std::pair(pass.mac, device.mac), std::pair(pass.id, IdOf(device)),
          std::pair(pass.ip, ShownAddress(device))}) {
        if (wanted && text.empty()) {
            return {};
        }
        key += wanted ? text + " " : "";
    }
    return key;
}

bool MayBeOne(const Device& a, const Device& b, const Pass& pass) {
    if (pass.mac) {
        return true;
    }
    return !Contradict(a.mac, b.mac) && (pass.id || !IdsContradict(a, b));
}

std::string SiteAndMac(const Device& device) {
    return device.site + "\n" + device.mac;
}

class Matcher {
public:
    Matcher(const std::vector<Device>& before, const std::vector<Device>& after)
        : m_before(before), m_after(after), m_partnerOf(before.size()), m_taken(after.size()) {
        NoteRepeaters(before);
        NoteRepeaters(after);
        for (const Pass& pass :
             {Pass{true, true, true}, Pass{true, true, false}, Pass{true, false, true},
              Pass{true, false, false}, Pass{false, true, true}, Pass{false, true, false},
              Pass{false, false, true}}) {
            Match(pass);
        }
    }

    std::vector<std::optional<std::size_t>> Partners() const { return m_partnerOf; }

private:
    void NoteRepeaters(const std::vector<Device>& devices) {
        std::set<std::string> seen;
        for (const Device& device : devices) {
            if (!device.mac.empty() && !seen.insert(SiteAndMac(device)).second) {
                m_repeaters.insert(SiteAndMac(device));
            }
        }
    }

    // A repeater's MAC address alone does not tell which of those behind it a device is.
    bool IsTold(const Device& device, const Pass& pass) const {
        return !pass.mac || pass.id || pass.ip || !m_repeaters.contains(SiteAndMac(device));
    }

    void Match(const Pass& pass) {
        std::unordered_multimap<std::string, std::size_t> open;
        for (std::size_t i = 0; i < m_after.size(); ++i) {
            if (std::string key; !m_taken[i] && IsTold(m_after[i], pass) &&
                                 !(key = KeyOf(m_after[i], pass)).empty()) {
                open.emplace(std::move(key), i);
            }
        }
        for (std::size_t i = 0; i < m_before.size(); ++i) {
            if (!m_partnerOf[i]) {
                MatchOne(i, pass, open);
            }
        }
    }

    void MatchOne(std::size_t index, const Pass& pass,
                  std::unordered_multimap<std::string, std::size_t>& open) {
        const std::string key = KeyOf(m_before[index], pass);
        const auto same = open.equal_range(key);
        for (auto at = same.first; !key.empty() && at != same.second; ++at) {
            if (MayBeOne(m_before[index], m_after[at->second], pass)) {
                m_partnerOf[index] = at->second;
                m_taken[at->second] = true;
                open.erase(at);
                return;
            }
        }
    }

    const std::vector<Device>& m_before;
    const std::vector<Device>& m_after;
    std::vector<std::optional<std::size_t>> m_partnerOf;
    std::vector<bool> m_taken;
    std::set<std::string> m_repeaters;
};

}  // namespace

Marks MarksOf(const Device& device, const std::string& interface) {
    return {device.mac, BareId(device.uuid), BareId(device.udn), ShownAddress(device),
            interface,  device.hardware,     device.site};
}

std::string BareId(const std::string& id) {
    constexpr std::array<std::string_view, 2> kPrefixes{"urn:uuid:", "uuid:"};
    std::string bare = id;
    std::transform(bare.begin(), bare.end(), bare.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const std::string_view prefix : kPrefixes) {
        if (bare.starts_with(prefix)) {
            return bare.substr(prefix.size());
        }
    }
    return bare;
}

bool IsIpv6Mark(const std::string& ip) {
    return ip.find(':') != std::string::npos;
}

bool Contradict(const std::string& a, const std::string& b) {
    return !a.empty() && !b.empty() && a != b;
}

std::vector<std::vector<std::size_t>> GroupByDevice(std::span<const Marks> all) {
    std::vector<Group> groups = GroupByAddress(all);
    JoinById(groups);
    JoinByMac(groups);
    std::vector<std::vector<std::size_t>> devices;
    for (Group& group : groups) {
        if (!group.members.empty()) {
            devices.push_back(std::move(group.members));
        }
    }
    return devices;
}

std::vector<std::optional<std::size_t>> MatchDevices(const std::vector<Device>& before,
                                                     const std::vector<Device>& after) {
    return Matcher(before, after).Partners();
}

}  // namespace Lanscout
