// What comes and goes between the rounds of --watch.
#pragma once

#include <string>
#include <vector>

#include "finder/device/comparison.h"
#include "finder/report.h"

namespace Lanscout {

struct WatchEvent {
    enum class What { Appeared, Gone, Changed };

    What what = What::Appeared;
    std::string time;      // ISO 8601, UTC; of Gone: when it was missed for good
    std::string lastSeen;  // of Gone
    Device device;
    std::vector<FieldChange> changes;  // of Changed
};

// Knows the devices that are there, and no others: what is gone is forgotten, so that a watch of
// months needs no more memory than its network is large, and never more than kMostDevices.
class WatchList {
public:
    static constexpr std::size_t kMostDevices = 10000;

    // A device is gone when that many rounds in a row have missed it: a lost datagram is no news.
    static constexpr int kRoundsUntilGone = 2;

    // Takes a round's result. A round that is not complete makes nothing go away.
    std::vector<WatchEvent> Take(const Report& report);

    std::vector<Device> Devices() const;

    // Whether devices were left out because there were too many.
    bool IsFull() const { return m_full; }

private:
    struct Entry {
        Device device;
        std::string lastSeen;
        int missed = 0;
    };

    void TakeMissing(const Report& report, std::size_t index, std::vector<WatchEvent>& events,
                     std::vector<Entry>& stay);

    std::vector<Entry> m_entries;
    bool m_full = false;
};

const char* WatchWhatText(WatchEvent::What what);

// A line for people, without its line end.
std::string WatchEventText(const WatchEvent& event);

// The fields of the line between tabs.
std::string WatchEventPlain(const WatchEvent& event);

Json WatchEventToJson(const WatchEvent& event);

}  // namespace Lanscout
