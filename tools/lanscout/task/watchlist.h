// Which devices a watch knows, and what has come, gone or changed since its last round.
#pragma once

#include <string>
#include <vector>

#include "finder/event.h"

namespace Lanscout {

// Knows the devices that are there, and those that were, as far as there is room: a watch of months
// needs no more memory than kMostDevices do.
class WatchList {
public:
    static constexpr std::size_t kMostDevices = 10000;

    // A device is gone when that many complete rounds in a row have missed it: a lost datagram is
    // no news.
    static constexpr int kRoundsUntilGone = 2;

    struct Entry {
        Device device;
        std::string lastSeen;
        bool gone = false;
        int missed = 0;
    };

    WatchList() = default;
    explicit WatchList(std::vector<Entry> entries);

    // Takes a round's result. A round that is not complete makes nothing go away.
    std::vector<DeviceEvent> Take(const Report& report);

    // Forgets those that are gone and were last seen before that time.
    void Forget(const std::string& time);

    // Those that are there.
    std::vector<Device> Devices() const;
    std::size_t Count() const;

    // Those that are gone too.
    const std::vector<Entry>& Entries() const { return m_entries; }

    // Whether the last round had devices that were left out because there were too many.
    bool IsFull() const { return m_full; }

private:
    void TakeSeen(const Report& report, const Device& seen, Entry& entry,
                  std::vector<DeviceEvent>& events);
    void TakeMissed(const Report& report, Entry& entry, std::vector<DeviceEvent>& events);
    void TakeNew(const Report& report, const Device& seen, std::vector<DeviceEvent>& events);
    bool MakeRoom();

    std::vector<Entry> m_entries;
    bool m_full = false;
};

}  // namespace Lanscout
