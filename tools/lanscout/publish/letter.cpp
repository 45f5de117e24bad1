#include "tools/lanscout/publish/letter.h"

#include "finder/device/devicejson.h"

namespace Lanscout {

std::string EncodeLetter(const Letter& letter) {
    return DumpLine(Json::array({letter.topic, letter.payload, letter.retain, letter.subject}));
}

std::optional<Letter> DecodeLetter(std::string_view line) {
    const Json json = Json::parse(line, nullptr, false);
    if (!json.is_array() || json.size() != 4 || !json[0].is_string() || !json[1].is_string() ||
        !json[2].is_boolean() || !json[3].is_string()) {
        return std::nullopt;
    }
    return Letter{json[0].get<std::string>(), json[1].get<std::string>(), json[2].get<bool>(),
                  json[3].get<std::string>()};
}

}  // namespace Lanscout
