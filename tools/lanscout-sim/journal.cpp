#include "tools/lanscout-sim/journal.h"

#include <fmt/format.h>

#include <utility>

namespace lansim {
namespace {

using nlohmann::ordered_json;

constexpr std::size_t kMostEntries = 1000;
// Of one datagram; a Probe may have thousands.
constexpr std::size_t kMostWords = 16;
constexpr std::size_t kLongestWord = 256;

std::string Short(const std::string& text) {
    return text.substr(0, kLongestWord);
}

template <typename Outcome>
ordered_json EntryOf(const Datagram& datagram, const Outcome& outcome, const char* protocol,
                     std::chrono::duration<double> at) {
    const auto text = [](const Endpoint& end) {
        return fmt::format("{}:{}", ToText(end.ip), end.port);
    };
    return {{"at", at.count()},
            {"protocol", protocol},
            {"from", text(datagram.from)},
            {"to", text(datagram.to)},
            {"bytes", datagram.payload.size()},
            {"answers", outcome.answers},
            {"refused", outcome.refused ? ordered_json(NameOf(*outcome.refused)) : ordered_json()}};
}

}  // namespace

void Journal::Add(const Datagram& datagram, const ProbeOutcome& outcome, TimePoint now) {
    auto entry = EntryOf(datagram, outcome, "ws-discovery", now - m_start);
    if (outcome.probe) {
        const Probe& probe = *outcome.probe;
        entry["kind"] = probe.kind == RequestKind::Probe ? "probe" : "resolve";
        entry["messageId"] = Short(probe.messageId);
        entry["types"] = ordered_json::array();
        for (const auto& type : probe.types) {
            if (entry["types"].size() < kMostWords) {
                entry["types"].push_back(Short(fmt::format("{{{}}}{}", type.uri, type.local)));
            }
        }
        entry["scopes"] = ordered_json::array();
        for (const auto& scope : probe.scopes) {
            if (entry["scopes"].size() < kMostWords) {
                entry["scopes"].push_back(Short(scope));
            }
        }
    }
    Add(std::move(entry));
}

void Journal::Add(const Datagram& datagram, const SearchOutcome& outcome, TimePoint now) {
    // Notices, those of the devices too, ask for nothing.
    if (outcome.refused == SsdpError::OtherMessage) {
        return;
    }
    auto entry = EntryOf(datagram, outcome, "ssdp", now - m_start);
    if (outcome.search) {
        entry["kind"] = "search";
        entry["target"] = Short(outcome.search->target);
    }
    Add(std::move(entry));
}

void Journal::Add(ordered_json entry) {
    m_entries.push_back(std::move(entry));
    if (m_entries.size() > kMostEntries) {
        m_entries.pop_front();
    }
}

ordered_json Journal::Entries() const {
    auto entries = ordered_json::array();
    for (const auto& entry : m_entries) {
        entries.push_back(entry);
    }
    return entries;
}

}  // namespace lansim
