#include "tools/lanscout/publish/outbox.h"

#include <utility>

namespace Lanscout {

// A topic has no line break.
std::string Outbox::KeyOf(const Letter& letter) {
    return letter.retain ? letter.topic : letter.topic + "\n" + letter.subject;
}

void Outbox::Enqueue(const std::string& key, Entry& entry) {
    if (!std::exchange(entry.waiting, true)) {
        m_queue.push_back(key);
    }
}

void Outbox::RememberEmptied(const std::string& key) {
    m_emptied.push_back(key);
    if (m_emptied.size() <= kMostEmptied) {
        return;
    }
    // One that has been filled again since stays.
    const auto oldest = m_entries.find(m_emptied.front());
    if (oldest != m_entries.end() && oldest->second.letter.payload.empty()) {
        m_entries.erase(oldest);
    }
    m_emptied.pop_front();
}

void Outbox::Put(Letter letter) {
    const std::lock_guard lock(m_mutex);
    const std::string key = KeyOf(letter);
    const bool emptied = letter.retain && letter.payload.empty();
    Entry& entry = m_entries[key];
    entry.letter = std::move(letter);
    entry.mark = ++m_lastMark;
    Enqueue(key, entry);
    if (emptied) {
        RememberEmptied(key);
    }
}

std::optional<Outbox::Sending> Outbox::Next() {
    const std::lock_guard lock(m_mutex);
    while (!m_queue.empty()) {
        const auto entry = m_entries.find(m_queue.front());
        m_queue.pop_front();
        if (entry != m_entries.end() && std::exchange(entry->second.waiting, false)) {
            return Sending{entry->second.letter, entry->second.mark};
        }
    }
    return std::nullopt;
}

void Outbox::Delivered(const Sending& sent) {
    const std::lock_guard lock(m_mutex);
    const auto entry = m_entries.find(KeyOf(sent.letter));
    if (!sent.letter.retain && entry != m_entries.end() && entry->second.mark == sent.mark) {
        m_entries.erase(entry);
    }
}

void Outbox::StartAgain() {
    const std::lock_guard lock(m_mutex);
    for (auto& [key, entry] : m_entries) {
        Enqueue(key, entry);
    }
}

std::size_t Outbox::Waiting() const {
    const std::lock_guard lock(m_mutex);
    return m_queue.size();
}

}  // namespace Lanscout
