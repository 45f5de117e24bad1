// Which messages the cameras have heard already.
#pragma once

#include <chrono>
#include <deque>
#include <string>
#include <vector>

#include "tools/lanscout-sim/base/timepoint.h"

namespace lansim {

// SOAP-over-UDP sends a message several times under one MessageID, and a device answers it once.
// What is kept is bounded in number and in time.
class RecentMessages {
public:
    // Whether the device with that number hears the message for the first time; from now on it
    // has heard it.
    bool IsNews(const std::string& messageId, std::size_t device, TimePoint now);

private:
    struct Entry {
        std::string messageId;
        TimePoint first;
        std::vector<bool> heardBy;
    };
    Entry& EntryOf(const std::string& messageId, TimePoint now);

    std::deque<Entry> m_entries;  // the oldest first
};

}  // namespace lansim
