#include "finder/device/fields.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "finder/text/addresstext.h"
#include "finder/text/safetext.h"

namespace Lanscout {
namespace {

constexpr std::size_t kMostListed = 64;

template <typename T>
using MemberOf = T Device::*;

// What each type of member is: whether it says anything, its text, how two of them merge, its JSON
// both ways and its schema.
bool Known(const std::string& text) {
    return !text.empty();
}
template <typename T>
bool Known(const std::vector<T>& list) {
    return !list.empty();
}
bool Known(int number) {
    return number != 0;
}
bool Known(bool flag) {
    return flag;
}
bool Known(const Protocols& protocols) {
    return protocols.onvif || protocols.upnp;
}
bool Known(Kind kind) {
    return kind != Kind::Unknown;
}
bool Known(Reach reach) {
    return reach != Reach::Unknown;
}

std::string Text(const std::string& text) {
    return text;
}
std::string Text(int number) {
    return std::to_string(number);
}
std::string Text(bool flag) {
    return flag ? "yes" : "no";
}
std::string Text(const Protocols& protocols) {
    return ProtocolsText(protocols);
}
std::string Text(Kind kind) {
    return KindText(kind);
}
std::string Text(Reach reach) {
    return ReachText(reach);
}
std::string Text(const Target& via) {
    return via.interface + " " + via.address;
}
template <typename T>
std::string Text(const std::vector<T>& list) {
    std::string text;
    for (const T& one : list) {
        text += (text.empty() ? "" : ",") + Text(one);
    }
    return text;
}

// The order in which one source's two values are compared: any would do that does not depend on
// which was heard first. The longer text says more.
bool SaysMore(const std::string& a, const std::string& b) {
    return std::pair(a.size(), std::cref(a).get()) > std::pair(b.size(), std::cref(b).get());
}
template <typename T>
bool SaysMore(const T& a, const T& b) {
    return a > b;
}

template <typename T>
void MergeScalar(Merge rule, bool sameSource, T& known, const T& seen) {
    switch (rule) {
        case Merge::Ranked:
            if (sameSource && SaysMore(seen, known)) {
                known = seen;
            }
            break;
        case Merge::RankedLast:
            if (!sameSource || SaysMore(seen, known)) {
                known = seen;
            }
            break;
        case Merge::Larger:
        case Merge::Both:
            known = std::max(known, seen);
            break;
        case Merge::Earliest:
            known = std::min(known, seen);
    }
}

// Two that differ become one in sorted order: as with every rule here, the same whoever comes
// first.
template <typename T>
void MergeTwo(Merge /*rule*/, bool /*sameSource*/, std::vector<T>& known,
              const std::vector<T>& seen) {
    if (known == seen) {
        return;
    }
    known.insert(known.end(), seen.begin(), seen.end());
    std::sort(known.begin(), known.end());
    known.erase(std::unique(known.begin(), known.end()), known.end());
    if (known.size() > kMostListed) {
        known.resize(kMostListed);
    }
}
void MergeTwo(Merge /*rule*/, bool /*sameSource*/, Protocols& known, const Protocols& seen) {
    known.onvif = known.onvif || seen.onvif;
    known.upnp = known.upnp || seen.upnp;
}
template <typename T>
void MergeTwo(Merge rule, bool sameSource, T& known, const T& seen) {
    MergeScalar(rule, sameSource, known, seen);
}

void MergeField(const Field& field, bool sameSource, Device& known, const Device& seen) {
    std::visit(
        [&](auto member) {
            if (!Known(seen.*member)) {
                return;
            }
            if (!Known(known.*member)) {
                known.*member = seen.*member;
            } else {
                MergeTwo(field.merge, sameSource, known.*member, seen.*member);
            }
        },
        field.member);
}

Json ToJson(const std::string& text) {
    return text;
}
Json ToJson(int number) {
    return number;
}
Json ToJson(Kind kind) {
    return KindText(kind);
}
Json ToJson(Reach reach) {
    return ReachText(reach);
}
Json ToJson(bool flag) {
    return flag;
}
Json ToJson(const Target& via) {
    return {{"interface", via.interface}, {"address", via.address}};
}
template <typename T>
Json ToJson(const std::vector<T>& list) {
    Json json = Json::array();
    for (const T& one : list) {
        json.push_back(ToJson(one));
    }
    return json;
}
Json ToJson(const Protocols& protocols) {
    Json json = Json::array();
    if (protocols.onvif) {
        json.push_back("onvif");
    }
    if (protocols.upnp) {
        json.push_back("upnp");
    }
    return json;
}

// Lists, flags and the kind have a value of their own for what is not known.
template <typename T>
constexpr bool kNullWhenUnknown =
    std::is_same_v<T, std::string> || std::is_same_v<T, int> || std::is_same_v<T, Reach>;

std::string TextFrom(const Json& json) {
    return json.is_string() ? ToKeptText(json.get_ref<const std::string&>()) : std::string();
}

void Read(const Json& json, std::string& text) {
    text = TextFrom(json);
}
void Read(const Json& json, int& number) {
    if (json.is_number_unsigned()) {
        const auto value = json.get<std::uint64_t>();
        number = std::in_range<int>(value) ? static_cast<int>(value) : 0;
    } else if (json.is_number_integer()) {
        const auto value = json.get<std::int64_t>();
        number = std::in_range<int>(value) ? static_cast<int>(value) : 0;
    }
}
void Read(const Json& json, bool& flag) {
    flag = json.is_boolean() && json.get<bool>();
}
void Read(const Json& json, Kind& kind) {
    for (const Kind one : {Kind::Camera, Kind::Other}) {
        if (json == KindText(one)) {
            kind = one;
        }
    }
}
void Read(const Json& json, Reach& reach) {
    for (const Reach one : {Reach::Local, Reach::Foreign, Reach::Routed}) {
        if (json == ReachText(one)) {
            reach = one;
        }
    }
}
void Read(const Json& json, Target& via) {
    if (json.is_object()) {
        via.interface = TextFrom(json.value("interface", Json()));
        via.address = TextFrom(json.value("address", Json()));
    }
}
template <typename T>
void Read(const Json& json, std::vector<T>& list) {
    if (!json.is_array() || json.size() > kMostListed) {
        return;
    }
    for (const Json& item : json) {
        T one{};
        Read(item, one);
        if (one != T{}) {
            list.push_back(std::move(one));
        }
    }
}
void Read(const Json& json, Protocols& protocols) {
    if (json.is_array() && json.size() <= kMostListed) {
        for (const Json& one : json) {
            protocols.onvif = protocols.onvif || one == "onvif";
            protocols.upnp = protocols.upnp || one == "upnp";
        }
    }
}

Json Schema(MemberOf<std::string> /*member*/) {
    return {{"type", {"string", "null"}}, {"minLength", 1}};
}
Json Schema(MemberOf<int> /*member*/) {
    return {{"type", {"integer", "null"}},
            {"minimum", std::numeric_limits<int>::min()},
            {"maximum", std::numeric_limits<int>::max()}};
}
Json Schema(MemberOf<bool> /*member*/) {
    return {{"type", "boolean"}};
}
Json Schema(MemberOf<Kind> /*member*/) {
    return {{"enum", {"camera", "other", "unknown"}}};
}
Json Schema(MemberOf<Reach> /*member*/) {
    return {{"enum", {"local", "foreign", "routed", nullptr}}};
}
Json Schema(MemberOf<Protocols> /*member*/) {
    return {{"type", "array"}, {"uniqueItems", true}, {"items", {{"enum", {"onvif", "upnp"}}}}};
}
Json Schema(MemberOf<std::vector<std::string>> /*member*/) {
    return {{"type", "array"},
            {"maxItems", kMostListed},
            {"items", {{"type", "string"}, {"minLength", 1}}}};
}
Json Schema(MemberOf<std::vector<Target>> /*member*/) {
    const Json text{{"type", "string"}};
    return {{"type", "array"},
            {"maxItems", kMostListed},
            {"items",
             {{"type", "object"},
              {"properties", {{"interface", text}, {"address", text}}},
              {"required", {"interface", "address"}},
              {"additionalProperties", false}}}};
}

}  // namespace

const Field* FieldNamed(std::string_view name) {
    const auto fields = Fields();
    const auto found = std::find_if(fields.begin(), fields.end(),
                                    [&](const Field& field) { return field.name == name; });
    return found == fields.end() ? nullptr : &*found;
}

bool IsKnown(const Field& field, const Device& device) {
    return std::visit([&](auto member) { return Known(device.*member); }, field.member);
}

std::string FieldText(const Field& field, const Device& device) {
    return std::visit(
        [&](auto member) { return Known(device.*member) ? Text(device.*member) : std::string(); },
        field.member);
}

std::string ShownText(const Field& field, const Device& device) {
    return field.shown == nullptr ? FieldText(field, device) : field.shown(device);
}

void MergeSameSource(const Field& field, Device& known, const Device& seen) {
    MergeField(field, true, known, seen);
}

void MergeNextSource(const Field& field, Device& known, const Device& next) {
    MergeField(field, false, known, next);
}

Json FieldToJson(const Field& field, const Device& device) {
    return std::visit(
        [&](auto member) -> Json {
            using Value = std::remove_cvref_t<decltype(device.*member)>;
            const Value& value = device.*member;
            return kNullWhenUnknown<Value> && !Known(value) ? Json() : ToJson(value);
        },
        field.member);
}

void FieldFromJson(const Field& field, const Json& json, Device& device) {
    std::visit([&](auto member) { Read(json, device.*member); }, field.member);
}

Json FieldSchema(const Field& field) {
    return std::visit([](auto member) { return Schema(member); }, field.member);
}

SortKey SortKeyOf(const Field& field, const Device& device) {
    std::string text = ShownText(field, device);
    const bool unknown = !IsKnown(field, device) && (field.shown == nullptr || text.empty());
    switch (field.sort) {
        case SortKind::Address:
            return {unknown, Ipv4Value(text).value_or(std::numeric_limits<std::uint32_t>::max()),
                    std::move(text)};
        case SortKind::Number: {
            const auto* const member = std::get_if<MemberOf<int>>(&field.member);
            const std::int64_t number = member == nullptr ? 0 : device.*(*member);
            return {unknown, static_cast<std::uint64_t>(number - std::numeric_limits<int>::min()),
                    ""};
        }
        case SortKind::Text:
            break;
    }
    return {unknown || text == "unknown", 0, std::move(text)};
}

void SortDevices(std::vector<Device>& devices, const Field& field) {
    const Field& address = Fields().front();
    std::vector<std::pair<std::pair<SortKey, SortKey>, std::size_t>> keys;
    keys.reserve(devices.size());
    for (std::size_t i = 0; i < devices.size(); ++i) {
        keys.push_back({{SortKeyOf(field, devices[i]), SortKeyOf(address, devices[i])}, i});
    }
    std::sort(keys.begin(), keys.end());
    std::vector<Device> sorted;
    sorted.reserve(devices.size());
    for (const auto& key : keys) {
        sorted.push_back(std::move(devices[key.second]));
    }
    devices = std::move(sorted);
}

std::vector<std::string> CsvNames() {
    std::vector<std::string> names;
    for (const Field& field : Fields()) {
        if (field.csv) {
            names.emplace_back(field.name);
        }
    }
    return names;
}

}  // namespace Lanscout
