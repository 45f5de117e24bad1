// The one list of devices, from the sightings of all sources.
#pragma once

#include <cstddef>
#include <ctime>
#include <functional>
#include <map>
#include <set>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "finder/device/identity.h"
#include "finder/device/sighting.h"

namespace Lanscout {

// Two machines at one address.
struct AddressConflict {
    std::string ip;
    std::string site;  // empty: found by this lanscout
    std::set<std::string> macs;

    auto operator<=>(const AddressConflict&) const = default;
};

// Takes sightings as they come and tells, whenever it is asked, what has become of the list. The
// list depends on what was seen and not on the order in which it was.
class Inventory {
public:
    enum class Change { Added, Updated, Withdrawn };

    struct News {
        Change change = Change::Added;
        std::size_t number = 0;  // the device's, for as long as the list lives
        Device former{};         // of Withdrawn: what it was
    };

    // A network has hundreds of devices, a large one thousands; a flood of forged replies has more.
    static constexpr std::size_t kMostDevices = 65536;

    // Sightings at one address that differ in what a device is told by; the rest is left out.
    static constexpr std::size_t kMostAtOneAddress = 64;

    using MakerOfMac = std::function<std::string(const std::string& mac)>;
    explicit Inventory(MakerOfMac makerOfMac);

    // False when it was left out because there are too many.
    bool Add(const Sighting& sighting, std::time_t now);

    // Works out who is who, and returns what has changed since it was last asked.
    std::vector<News> Settle();

    // The same, also bringing the times up to date at which devices were last heard.
    std::vector<News> SettleAll();

    // After Settle: the devices, in no particular order.
    std::span<const Device> Devices() const { return m_devices; }
    const Device& DeviceNumbered(std::size_t number) const;

    const std::set<AddressConflict>& Conflicts() const { return m_conflicts; }

private:
    // What one source has told of one device at one address.
    struct Fact {
        SourceId source;
        std::string interface;
        Device device;
        std::time_t first;
        std::time_t last;
        std::size_t part;            // of m_parts
        std::size_t number = kNone;  // of the device that it was last put into
    };

    // What only tells a MAC address: the network's answer, not a device's.
    struct MacHint {
        std::string interface;
        std::string mac;
        std::string uuid;  // where it tells whose reply the frame was
        bool operator==(const MacHint&) const = default;
    };

    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    bool AddFact(const Sighting& sighting, std::time_t now);
    void Refresh(Fact& fact, const Sighting& sighting, std::time_t now);
    bool AddHint(const Sighting& sighting);
    void UniteByMarks(std::size_t fact);
    void UniteBy(const std::string& mark, std::size_t part);
    std::size_t PartOf(std::size_t part) const;
    void Unite(std::size_t a, std::size_t b);
    std::set<std::string> HintedMacs(const Fact& fact) const;
    std::string MacOf(const Fact& fact) const;
    void SplitClones(std::size_t index);
    void UniteByMacs();
    void SettlePart(std::size_t part, std::vector<News>& news);
    std::size_t NumberFor(const std::vector<std::size_t>& facts, std::set<std::size_t>& used);
    Device Compose(const std::vector<std::size_t>& facts) const;
    void FindConflicts(std::vector<std::pair<std::size_t, Device>>& rows);
    void Store(std::size_t number, Device device, std::vector<News>& news);
    void Withdraw(std::size_t number, std::vector<News>& news);

    MakerOfMac m_makerOfMac;
    std::vector<Fact> m_facts;
    std::unordered_map<std::string, std::size_t> m_factByKey;
    std::unordered_map<std::string, std::size_t> m_factsAtAddress;
    std::unordered_map<std::string, std::vector<MacHint>> m_hints;  // by address
    std::size_t m_hintCount = 0;

    // Facts that share an address, an id or a MAC address, directly or through others, are one
    // part; who is who is worked out within a part.
    std::unordered_map<std::string, std::size_t> m_partByMark;
    std::vector<std::size_t> m_parentOf;              // a forest over parts
    std::vector<std::vector<std::size_t>> m_factsOf;  // of the part that is a root
    std::set<std::size_t> m_unsettled;                // parts

    std::vector<Device> m_devices;
    std::vector<std::size_t> m_numberAt;                     // beside m_devices
    std::unordered_map<std::size_t, std::size_t> m_indexOf;  // of a number in m_devices
    std::size_t m_nextNumber = 0;
    std::set<AddressConflict> m_conflicts;
};

}  // namespace Lanscout
