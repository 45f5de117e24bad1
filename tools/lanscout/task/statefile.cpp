#include "tools/lanscout/task/statefile.h"

#include <fmt/core.h>

#include <stdexcept>
#include <utility>

#include "finder/device/devicejson.h"
#include "finder/text/safetext.h"

namespace Lanscout {
namespace {

constexpr int kVersion = 1;
constexpr std::chrono::seconds kLeastPause{10};

std::string EntryText(const WatchList::Entry& entry) {
    std::string text = DumpLine({{"present", !entry.gone},
                                 {"lastSeen", entry.lastSeen},
                                 {"device", DeviceToJson(entry.device)}});
    text.pop_back();  // the line end
    return text;
}

std::optional<WatchList::Entry> EntryFrom(const Json& json) {
    if (!json.is_object() || !json.value("present", Json()).is_boolean() ||
        !json.value("lastSeen", Json()).is_string()) {
        return std::nullopt;
    }
    std::optional<Device> device = DeviceFromJson(json.value("device", Json()));
    if (!device) {
        return std::nullopt;
    }
    return WatchList::Entry{std::move(*device), ToKeptText(json["lastSeen"].get<std::string>()),
                            !json["present"].get<bool>(), 0};
}

}  // namespace

std::string StateDocument(const std::vector<WatchList::Entry>& entries) {
    std::string text =
        fmt::format("{{\"lanscout\":\"{}\",\"watch\":{},\"devices\":[", LANSCOUT_VERSION, kVersion);
    const char* separator = "\n";
    for (const WatchList::Entry& entry : entries) {
        const std::string one = EntryText(entry);
        if (text.size() + one.size() + 8 > kLongestStateBytes) {
            break;
        }
        text += separator + one;
        separator = ",\n";
    }
    return text + "\n]}\n";
}

std::variant<std::vector<WatchList::Entry>, std::string> EntriesFromState(std::string_view text) {
    const Json document = Json::parse(text, nullptr, false);
    if (!document.is_object() || !document.contains("watch")) {
        return "it is not what lanscout --state has written";
    }
    if (document["watch"] != kVersion) {
        return "a later lanscout has written it";
    }
    const auto list = document.find("devices");
    if (list == document.end() || !list->is_array()) {
        return "it has no list of devices";
    }
    std::vector<WatchList::Entry> entries;
    for (const Json& one : *list) {
        std::optional<WatchList::Entry> entry = EntryFrom(one);
        if (!entry) {
            return fmt::format("its device number {} is not whole", entries.size() + 1);
        }
        entries.push_back(std::move(*entry));
    }
    return entries;
}

StateFile::StateFile(std::string path, Surroundings& world)
    : m_path(std::move(path)), m_world(world) {}

std::vector<WatchList::Entry> StateFile::Read() const {
    if (m_path.empty()) {
        return {};
    }
    if (!m_world.files.exists(m_path)) {
        m_world.files.checkWritable(m_path);
        return {};
    }
    auto read = EntriesFromState(m_world.files.read(m_path, kLongestStateBytes));
    if (const std::string* const wrong = std::get_if<std::string>(&read)) {
        throw std::runtime_error(fmt::format("cannot use {}: {}", m_path, *wrong));
    }
    m_world.files.checkWritable(m_path);
    return std::get<std::vector<WatchList::Entry>>(std::move(read));
}

void StateFile::Keep(const WatchList& list) {
    if (!m_written || m_world.now() - *m_written >= kLeastPause) {
        KeepAtLast(list);
    }
}

void StateFile::KeepAtLast(const WatchList& list) {
    if (m_path.empty()) {
        return;
    }
    std::string failure;
    try {
        m_world.files.write(m_path, StateDocument(list.Entries()));
    } catch (const std::runtime_error& wrong) {
        failure = wrong.what();
    }
    if (!failure.empty() && failure != m_failure) {
        m_world.console.Say("lanscout: " + ForDisplay(failure) + "; the watch goes on without it");
    }
    m_failure = std::move(failure);
    m_written = m_world.now();
}

}  // namespace Lanscout
