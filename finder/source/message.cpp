#include "finder/source/message.h"

#include <array>

#include "finder/device/devicejson.h"

namespace Lanscout {
namespace {

constexpr std::array kSources{SourceId::Probes, SourceId::CameraSearch, SourceId::UpnpSearch,
                              SourceId::Frames, SourceId::Neighbours,   SourceId::Announcements,
                              SourceId::Sites};

Json ToJson(const Target& target) {
    return {{"interface", target.interface}, {"address", target.address}};
}

Json ToJson(const SightingMessage& message) {
    return {{"device", KnownToJson(message.sighting.device)},
            {"source", static_cast<int>(message.sighting.source)},
            {"via", ToJson(message.sighting.via)}};
}

Json ToJson(const LogMessage& log) {
    return {{"log", log.text}, {"level", log.level}};
}

template <typename Told>
Json ToldJson(const char* name, const Told& told) {
    return {{name, told.what}, {"remedy", told.remedy}, {"via", ToJson(told.target)}};
}

Json ToJson(const FailureMessage& failure) {
    return ToldJson("failure", failure);
}

Json ToJson(const NoticeMessage& notice) {
    return ToldJson("notice", notice);
}

Json ToJson(const DoneMessage& /*done*/) {
    return {{"done", true}};
}

int IntegerAt(const Json& json, const char* name) {
    const auto found = json.find(name);
    return found != json.end() && found->is_number_integer() ? found->get<int>() : 0;
}

std::string TextAt(const Json& json, const char* name) {
    const auto found = json.find(name);
    return found != json.end() && found->is_string() ? found->get<std::string>() : std::string();
}

Target TargetFrom(const Json& json) {
    const auto via = json.find("via");
    if (via == json.end() || !via->is_object()) {
        return {};
    }
    return {TextAt(*via, "interface"), TextAt(*via, "address")};
}

std::optional<Message> SightingFrom(const Json& json) {
    std::optional<Device> device = DeviceFromJson(json["device"]);
    const auto source = static_cast<std::size_t>(IntegerAt(json, "source"));
    if (!device || source >= kSources.size()) {
        return std::nullopt;
    }
    return SightingMessage{{kSources[source], TargetFrom(json), std::move(*device)}};
}

}  // namespace

std::string EncodeMessage(const Message& message) {
    return std::visit([](const auto& one) { return DumpLine(ToJson(one)); }, message);
}

std::optional<Message> DecodeMessage(std::string_view line) {
    Json json = Json::parse(line, nullptr, false);
    if (!json.is_object()) {
        return std::nullopt;
    }
    if (json.contains("device")) {
        return SightingFrom(json);
    }
    if (json.contains("log")) {
        return LogMessage{IntegerAt(json, "level"), TextAt(json, "log")};
    }
    if (json.contains("failure")) {
        return FailureMessage{TargetFrom(json), TextAt(json, "failure"), TextAt(json, "remedy")};
    }
    if (json.contains("notice")) {
        return NoticeMessage{TargetFrom(json), TextAt(json, "notice"), TextAt(json, "remedy")};
    }
    if (json.contains("done")) {
        return DoneMessage{};
    }
    return std::nullopt;
}

}  // namespace Lanscout
