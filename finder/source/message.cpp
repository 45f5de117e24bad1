#include "finder/source/message.h"

#include "finder/device/devicejson.h"

namespace Lanscout {
namespace {

Json ToJson(const FoundMessage& found) {
    return {{"found", DeviceToJson(found.device)}};
}

Json ToJson(const LogMessage& log) {
    return {{"log", log.line}, {"level", log.level}};
}

Json ToJson(const FailureMessage& failure) {
    return {{"failure", failure.what}, {"code", failure.code}};
}

Json ToJson(const DoneMessage& /*done*/) {
    return {{"done", true}};
}

int IntegerAt(const Json& json, const char* name) {
    const auto found = json.find(name);
    return found != json.end() && found->is_number_integer() ? found->get<int>() : 0;
}

}  // namespace

std::string EncodeMessage(const Message& message) {
    return std::visit([](const auto& one) { return DumpLine(ToJson(one)); }, message);
}

std::optional<Message> DecodeMessage(std::string_view line) {
    const Json json = Json::parse(line, nullptr, false);
    if (!json.is_object()) {
        return std::nullopt;
    }
    if (const auto found = json.find("found"); found != json.end()) {
        if (std::optional<Device> device = DeviceFromJson(*found)) {
            return FoundMessage{std::move(*device)};
        }
        return std::nullopt;
    }
    if (const auto log = json.find("log"); log != json.end() && log->is_string()) {
        return LogMessage{IntegerAt(json, "level"), log->get<std::string>()};
    }
    if (const auto failure = json.find("failure"); failure != json.end() && failure->is_string()) {
        return FailureMessage{failure->get<std::string>(), IntegerAt(json, "code")};
    }
    if (json.contains("done")) {
        return DoneMessage{};
    }
    return std::nullopt;
}

}  // namespace Lanscout
