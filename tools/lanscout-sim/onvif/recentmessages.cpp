#include "tools/lanscout-sim/onvif/recentmessages.h"

#include <algorithm>

namespace lansim {
namespace {

constexpr std::size_t kMostMessages = 256;
// Long after the last copy; a person who sends the same file again is answered again.
constexpr std::chrono::seconds kKept{60};

}  // namespace

RecentMessages::Entry& RecentMessages::EntryOf(const std::string& messageId, TimePoint now) {
    while (!m_entries.empty() &&
           (now - m_entries.front().first > kKept || m_entries.size() > kMostMessages)) {
        m_entries.pop_front();
    }
    // The newest first: all cameras ask about one message before the next comes.
    const auto found =
        std::ranges::find(m_entries.rbegin(), m_entries.rend(), messageId, &Entry::messageId);
    if (found != m_entries.rend()) {
        return *found;
    }
    return m_entries.emplace_back(Entry{messageId, now, {}});
}

bool RecentMessages::IsNews(const std::string& messageId, std::size_t device, TimePoint now) {
    auto& heardBy = EntryOf(messageId, now).heardBy;
    if (heardBy.size() <= device) {
        heardBy.resize(device + 1);
    }
    const bool isNews = !heardBy[device];
    heardBy[device] = true;
    return isNews;
}

}  // namespace lansim
