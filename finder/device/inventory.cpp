#include "finder/device/inventory.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "finder/device/composition.h"
#include "finder/device/fields.h"

namespace Lanscout {
namespace {

bool TellsMacsOnly(SourceId source) {
    return source == SourceId::Frames || source == SourceId::Neighbours;
}

std::string FactKey(const Sighting& sighting, const Marks& marks) {
    return fmt::format("{}\n{}\n{}\n{}\n{}\n{}\n{}", static_cast<int>(sighting.source), marks.site,
                       marks.interface, marks.ip, marks.mac, marks.uuid, marks.udn);
}

// Within one site, or within what this lanscout hears itself.
std::string Mark(char kind, const Device& device, const std::string& text) {
    return fmt::format("{} {}\n{}", kind, device.site, text);
}

// A link-local address names its interface; the others are alike wherever they are heard.
std::string AddressMark(const Device& device) {
    return Mark('a', device, ShownAddress(device));
}

std::string PlaceKey(const std::string& interface, const Device& device) {
    return fmt::format("{} {}\n{}", interface, device.site, ShownAddress(device));
}

}  // namespace

Inventory::Inventory(MakerOfMac makerOfMac) : m_makerOfMac(std::move(makerOfMac)) {}

bool Inventory::Add(const Sighting& sighting, std::time_t now) {
    return TellsMacsOnly(sighting.source) ? AddHint(sighting) : AddFact(sighting, now);
}

bool Inventory::AddHint(const Sighting& sighting) {
    const std::string address = ShownAddress(sighting.device);
    std::vector<MacHint>& hints = m_hints[address];
    MacHint hint{sighting.via.interface, sighting.device.mac, BareId(sighting.device.uuid)};
    if (std::find(hints.begin(), hints.end(), hint) != hints.end()) {
        return true;
    }
    if (hints.size() >= kMostAtOneAddress || m_hintCount >= 2 * kMostDevices) {
        return false;
    }
    hints.push_back(std::move(hint));
    ++m_hintCount;
    if (const auto part = m_partByMark.find(AddressMark(sighting.device));
        part != m_partByMark.end()) {
        m_unsettled.insert(PartOf(part->second));
    }
    return true;
}

bool Inventory::AddFact(const Sighting& sighting, std::time_t now) {
    const Marks marks = MarksOf(sighting.device, sighting.via.interface);
    const std::string key = FactKey(sighting, marks);
    if (const auto known = m_factByKey.find(key); known != m_factByKey.end()) {
        Refresh(m_facts[known->second], sighting, now);
        return true;
    }
    std::size_t& atAddress = m_factsAtAddress[PlaceKey(marks.interface, sighting.device)];
    if (m_facts.size() >= 2 * kMostDevices || atAddress >= kMostAtOneAddress) {
        return false;
    }
    ++atAddress;
    const std::size_t index = m_facts.size();
    const std::size_t part = m_parentOf.size();
    m_facts.push_back({sighting.source, sighting.via.interface, sighting.device, now, now, part});
    if (sighting.device.site.empty()) {  // a site says itself how it saw the device, and when
        m_facts.back().device.seenVia = {sighting.via};
    }
    m_factByKey.emplace(key, index);
    m_parentOf.push_back(part);
    m_factsOf.push_back({index});
    m_unsettled.insert(part);
    UniteByMarks(index);
    return true;
}

void Inventory::Refresh(Fact& fact, const Sighting& sighting, std::time_t now) {
    fact.first = std::min(fact.first, now);
    fact.last = std::max(fact.last, now);
    Device merged = fact.device;
    for (const Field& field : Fields()) {
        MergeSameSource(field, merged, sighting.device);
    }
    if (merged.site.empty() && std::find(merged.seenVia.begin(), merged.seenVia.end(),
                                         sighting.via) == merged.seenVia.end()) {
        merged.seenVia.push_back(sighting.via);
    }
    if (merged != fact.device) {
        fact.device = std::move(merged);
        m_unsettled.insert(PartOf(fact.part));
    }
}

void Inventory::UniteByMarks(std::size_t fact) {
    const Device& device = m_facts[fact].device;
    const std::size_t part = m_facts[fact].part;
    UniteBy(AddressMark(device), part);
    for (const std::string& id : {BareId(device.uuid), BareId(device.udn)}) {
        if (!id.empty()) {
            UniteBy(Mark('i', device, id), part);
        }
    }
}

void Inventory::UniteBy(const std::string& mark, std::size_t part) {
    const auto [at, isNew] = m_partByMark.try_emplace(mark, part);
    if (!isNew) {
        Unite(at->second, part);
    }
}

std::size_t Inventory::PartOf(std::size_t part) const {
    while (m_parentOf[part] != part) {
        part = m_parentOf[part];
    }
    return part;
}

void Inventory::Unite(std::size_t a, std::size_t b) {
    a = PartOf(a);
    b = PartOf(b);
    if (a == b) {
        return;
    }
    if (m_factsOf[a].size() < m_factsOf[b].size()) {
        std::swap(a, b);
    }
    m_parentOf[b] = a;
    m_factsOf[a].insert(m_factsOf[a].end(), m_factsOf[b].begin(), m_factsOf[b].end());
    m_factsOf[b] = {};
    m_unsettled.erase(b);
    m_unsettled.insert(a);
}

// What the network says of the fact's address; of the frames that the very replies came in where
// that is known.
std::set<std::string> Inventory::HintedMacs(const Fact& fact) const {
    const auto hints = m_hints.find(ShownAddress(fact.device));
    if (hints == m_hints.end() || !fact.device.site.empty()) {
        return {};
    }
    const std::string uuid = BareId(fact.device.uuid);
    std::set<std::string> own;
    std::set<std::string> any;
    for (const MacHint& hint : hints->second) {
        if (hint.interface == fact.interface || fact.interface.empty()) {
            any.insert(hint.mac);
            if (!uuid.empty() && hint.uuid == uuid) {
                own.insert(hint.mac);
            }
        }
    }
    return own.empty() && any.size() == 1 ? any : own;
}

std::string Inventory::MacOf(const Fact& fact) const {
    if (!fact.device.mac.empty()) {
        return fact.device.mac;
    }
    const std::set<std::string> hinted = HintedMacs(fact);
    return hinted.empty() ? std::string() : *hinted.begin();
}

// One address, one id, frames from several machines: cameras of one make fresh out of the box. Each
// machine gets a fact of its own.
void Inventory::SplitClones(std::size_t index) {
    if (!m_facts[index].device.mac.empty()) {
        return;
    }
    for (const std::string& mac : std::set(HintedMacs(m_facts[index]))) {
        if (mac == MacOf(m_facts[index])) {
            continue;
        }
        Fact clone = m_facts[index];
        clone.device.mac = mac;
        clone.number = kNone;
        const Sighting sighting{clone.source, {clone.interface, ""}, clone.device};
        const std::string key = FactKey(sighting, MarksOf(clone.device, clone.interface));
        std::size_t& atAddress = m_factsAtAddress[PlaceKey(clone.interface, clone.device)];
        if (atAddress < kMostAtOneAddress && m_facts.size() < 2 * kMostDevices &&
            m_factByKey.try_emplace(key, m_facts.size()).second) {
            ++atAddress;
            m_factsOf[PartOf(clone.part)].push_back(m_facts.size());
            m_facts.push_back(std::move(clone));
        }
    }
}

void Inventory::UniteByMacs() {
    std::vector<std::size_t> parts(m_unsettled.begin(), m_unsettled.end());
    for (const std::size_t part : parts) {
        for (const std::size_t fact : std::vector(m_factsOf[part])) {
            SplitClones(fact);
        }
    }
    for (const std::size_t part : parts) {
        const std::vector<std::size_t> facts = m_factsOf[part];  // Unite changes the list
        for (const std::size_t fact : facts) {
            if (const std::string mac = MacOf(m_facts[fact]); !mac.empty()) {
                UniteBy(Mark('m', m_facts[fact].device, mac), m_facts[fact].part);
            }
        }
    }
}

std::vector<Inventory::News> Inventory::Settle() {
    UniteByMacs();
    std::vector<News> news;
    for (const std::size_t part : std::exchange(m_unsettled, {})) {
        SettlePart(part, news);
    }
    return news;
}

std::vector<Inventory::News> Inventory::SettleAll() {
    for (const Fact& fact : m_facts) {
        m_unsettled.insert(PartOf(fact.part));
    }
    return Settle();
}

void Inventory::SettlePart(std::size_t part, std::vector<News>& news) {
    const std::vector<std::size_t>& facts = m_factsOf[part];
    std::vector<Marks> marks;
    std::set<std::size_t> former;
    marks.reserve(facts.size());
    for (const std::size_t fact : facts) {
        marks.push_back(MarksOf(m_facts[fact].device, m_facts[fact].interface));
        marks.back().mac = MacOf(m_facts[fact]);
        former.insert(m_facts[fact].number);
    }
    former.erase(kNone);
    std::set<std::size_t> used;
    std::vector<std::pair<std::size_t, Device>> rows;
    for (std::vector<std::size_t>& group : GroupByDevice(marks)) {
        for (std::size_t& member : group) {
            member = facts[member];
        }
        std::sort(group.begin(), group.end());
        const std::size_t number = NumberFor(group, used);
        if (number == kNone) {
            continue;
        }
        for (const std::size_t fact : group) {
            m_facts[fact].number = number;
        }
        rows.emplace_back(number, Compose(group));
    }
    FindConflicts(rows);
    for (auto& [number, device] : rows) {
        former.erase(number);
        Store(number, std::move(device), news);
    }
    for (const std::size_t number : former) {
        Withdraw(number, news);
    }
}

// A device keeps its number as long as one of its facts does.
std::size_t Inventory::NumberFor(const std::vector<std::size_t>& facts,
                                 std::set<std::size_t>& used) {
    std::size_t number = kNone;
    for (const std::size_t fact : facts) {
        if (!used.contains(m_facts[fact].number)) {
            number = std::min(number, m_facts[fact].number);
        }
    }
    if (number == kNone) {
        if (m_devices.size() >= kMostDevices) {
            return kNone;
        }
        number = m_nextNumber++;
    }
    used.insert(number);
    return number;
}

Device Inventory::Compose(const std::vector<std::size_t>& facts) const {
    Composition composition;
    for (const std::size_t index : facts) {
        const Fact& fact = m_facts[index];
        composition.Add(fact.source, fact.device, MacOf(fact), fact.first, fact.last);
    }
    Device device = composition.Result();
    device.macMaker = device.mac.empty() ? "" : m_makerOfMac(device.mac);
    return device;
}

void Inventory::FindConflicts(std::vector<std::pair<std::size_t, Device>>& rows) {
    std::map<std::pair<std::string, std::string>, std::set<std::string>> macsAt;
    const auto places = [](const Device& device) {
        std::set<std::pair<std::string, std::string>> all;
        for (const Target& via : device.seenVia) {
            all.emplace(via.interface, device.ip);
        }
        return all;
    };
    for (const auto& [number, device] : rows) {
        if (!device.ip.empty() && !device.mac.empty()) {
            for (const auto& place : places(device)) {
                macsAt[place].insert(device.mac);
            }
        }
    }
    for (auto& [number, device] : rows) {
        for (const auto& place : places(device)) {
            const auto found = macsAt.find(place);
            if (found != macsAt.end() && found->second.size() > 1) {
                device.sharedAddress = true;
                m_conflicts.insert({device.ip, device.site, found->second});
            }
        }
    }
}

void Inventory::Store(std::size_t number, Device device, std::vector<News>& news) {
    const auto [at, isNew] = m_indexOf.try_emplace(number, m_devices.size());
    if (isNew) {
        m_devices.push_back(std::move(device));
        m_numberAt.push_back(number);
        news.push_back({Change::Added, number});
        return;
    }
    Device& known = m_devices[at->second];
    // That it was heard again is no news.
    Device compared = device;
    compared.lastSeen = known.lastSeen;
    const bool updated = compared != known;
    known = std::move(device);
    if (updated) {
        news.push_back({Change::Updated, number});
    }
}

void Inventory::Withdraw(std::size_t number, std::vector<News>& news) {
    const auto at = m_indexOf.find(number);
    if (at == m_indexOf.end()) {
        return;
    }
    const std::size_t index = at->second;
    m_indexOf.erase(at);
    news.push_back({Change::Withdrawn, number, std::move(m_devices[index])});
    if (index + 1 != m_devices.size()) {
        m_devices[index] = std::move(m_devices.back());
        m_numberAt[index] = m_numberAt.back();
        m_indexOf[m_numberAt[index]] = index;
    }
    m_devices.pop_back();
    m_numberAt.pop_back();
}

const Device& Inventory::DeviceNumbered(std::size_t number) const {
    return m_devices[m_indexOf.at(number)];
}

}  // namespace Lanscout
