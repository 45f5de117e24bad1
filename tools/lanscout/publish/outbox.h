// What the broker is to have, and what of it the broker has said that it has. However long it is
// away, one letter a topic waits, the newest.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "tools/lanscout/publish/letter.h"

namespace Lanscout {

// Any thread may call.
class Outbox {
public:
    // Topics that are to be empty are remembered too, because a broker that comes back from an
    // older state has them again. The oldest are forgotten when there are more.
    static constexpr std::size_t kMostEmptied = 10000;

    void Put(Letter letter);

    // A letter on its way. The mark tells it from a later one of the same topic.
    struct Sending {
        Letter letter;
        std::uint64_t mark = 0;
    };

    // The letter that waits for the longest time.
    std::optional<Sending> Next();

    // The broker has it.
    void Delivered(const Sending& sent);

    // The connection is gone: whatever it may have carried, and whatever the broker may have lost
    // of what is kept there, waits again.
    void StartAgain();

    std::size_t Waiting() const;

private:
    struct Entry {
        Letter letter;
        std::uint64_t mark = 0;
        bool waiting = false;
    };

    static std::string KeyOf(const Letter& letter);
    void Enqueue(const std::string& key, Entry& entry);
    void RememberEmptied(const std::string& key);

    mutable std::mutex m_mutex;
    std::map<std::string, Entry> m_entries;
    std::deque<std::string> m_queue;  // keys of those that wait
    std::deque<std::string> m_emptied;
    std::uint64_t m_lastMark = 0;
};

}  // namespace Lanscout
