#include "tools/lanscout-sim/jsonreader.h"

#include <fmt/ranges.h>

#include <algorithm>
#include <set>

#include "tools/lanscout-sim/base/setuperror.h"

namespace lansim {
namespace {

using nlohmann::json;

// A scenario needs four.
constexpr int kDeepest = 32;
constexpr std::size_t kMostShownBytes = 60;

// The value as it may stand in a message: short.
std::string ShownValue(const json& value) {
    std::string text = value.dump(-1, ' ', true, json::error_handler_t::replace);
    if (text.size() > kMostShownBytes) {
        text = text.substr(0, kMostShownBytes) + "...";
    }
    return text;
}

// Throws at what nlohmann would take: any depth, and the last one of two members.
class Guard {
public:
    explicit Guard(std::string source) : m_source(std::move(source)) {}

    bool operator()(int depth, json::parse_event_t event, const json& parsed) {
        if (depth > kDeepest) {
            throw SetupError(fmt::format("{}: nested more than {} deep", m_source, kDeepest));
        }
        const auto level = static_cast<std::size_t>(depth);
        if (event == json::parse_event_t::object_start) {
            m_members.resize(level + 2);
            m_members[level + 1].clear();
        } else if (event == json::parse_event_t::key &&
                   !m_members.at(level).insert(parsed.get<std::string>()).second) {
            throw SetupError(fmt::format("{}: the member {} is there twice in one object", m_source,
                                         ShownValue(parsed)));
        }
        return true;
    }

private:
    std::string m_source;
    std::vector<std::set<std::string>> m_members;  // of the open objects, by depth
};

}  // namespace

json ParseJson(const std::string& text, const std::string& source) {
    try {
        return json::parse(text, Guard(source), true, true);
    } catch (const json::exception& error) {
        throw SetupError(fmt::format("{}: not JSON: {}", source, error.what()));
    }
}

JsonReader::JsonReader(const json& object, std::string place)
    : m_object(object), m_place(std::move(place)) {
    if (!object.is_object()) {
        Fail("is no object");
    }
}

void JsonReader::Fail(const std::string& what) const {
    throw SetupError(fmt::format("{}: {}", m_place, what));
}

void JsonReader::Fail(const std::string& member, const std::string& what) const {
    throw SetupError(fmt::format("{}: {}", PathOf(member), what));
}

// "office.json: cameras[1]" and "office.json" have a different mark before a member.
std::string JsonReader::PathOf(const std::string& member) const {
    return m_place + (m_place.ends_with(']') ? "." : ": ") + member;
}

const json* JsonReader::Find(const char* key) {
    m_known.emplace_back(key);
    const auto found = m_object.find(key);
    return found == m_object.end() || found->is_null() ? nullptr : &*found;
}

void JsonReader::Read(const char* key, std::string& value) {
    if (const auto* member = Find(key)) {
        if (!member->is_string()) {
            Fail(key, ShownValue(*member) + " is no text");
        }
        value = member->get<std::string>();
    }
}

void JsonReader::Read(const char* key, bool& value) {
    if (const auto* member = Find(key)) {
        if (!member->is_boolean()) {
            Fail(key, ShownValue(*member) + " is neither true nor false");
        }
        value = member->get<bool>();
    }
}

void JsonReader::Read(const char* key, std::vector<std::string>& value) {
    const auto* member = Find(key);
    if (member == nullptr) {
        return;
    }
    if (!member->is_array() ||
        !std::ranges::all_of(*member, [](const auto& item) { return item.is_string(); })) {
        Fail(key, ShownValue(*member) + " is no list of texts");
    }
    value = member->get<std::vector<std::string>>();
}

double JsonReader::Checked(const json& member, const char* key, double least, double most,
                           bool mayBeBroken) const {
    if (mayBeBroken ? !member.is_number() : !member.is_number_integer()) {
        Fail(key, ShownValue(member) + (mayBeBroken ? " is no number" : " is no whole number"));
    }
    const auto number = member.get<double>();
    if (!(number >= least && number <= most)) {
        Fail(key, fmt::format("{} is not {:.12g} to {:.12g}", ShownValue(member), least, most));
    }
    return number;
}

std::vector<std::pair<const json*, std::string>> JsonReader::ReadList(const char* key) {
    std::vector<std::pair<const json*, std::string>> items;
    const auto* member = Find(key);
    if (member == nullptr) {
        return items;
    }
    if (!member->is_array()) {
        Fail(key, ShownValue(*member) + " is no list");
    }
    for (const auto& item : *member) {
        items.emplace_back(&item, fmt::format("{}[{}]", PathOf(key), items.size()));
    }
    return items;
}

void JsonReader::RefuseUnknownKeys() const {
    for (const auto& [key, value] : m_object.items()) {
        if (std::ranges::find(m_known, key) == m_known.end()) {
            Fail(key, fmt::format("not known here; known are {}", fmt::join(m_known, ", ")));
        }
    }
}

}  // namespace lansim
