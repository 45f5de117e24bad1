// Reading JSON that people write by hand, so that every complaint names its place.
#pragma once

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace lansim {

// The text as JSON; comments are allowed. Throws SetupError, also when it is nested too deep to be
// worked with or has a member twice. `source` is what the text is called in the message.
nlohmann::json ParseJson(const std::string& text, const std::string& source);

// Reads one object, whose path is `place`.
class JsonReader {
public:
    // The object stays the caller's and outlives the reader.
    JsonReader(const nlohmann::json& object, std::string place);

    const std::string& Place() const { return m_place; }
    // Throws a SetupError about the object, or about one of its members.
    [[noreturn]] void Fail(const std::string& what) const;
    [[noreturn]] void Fail(const std::string& member, const std::string& what) const;

    bool Has(const char* key) const { return m_object.contains(key); }
    // What is not there, or is null, leaves `value` as it is; all of these.
    void Read(const char* key, std::string& value);
    void Read(const char* key, bool& value);
    void Read(const char* key, std::vector<std::string>& value);
    template <typename Number>
    void ReadNumber(const char* key, Number& value, double least, double most) {
        if (const auto* member = Find(key)) {
            value = static_cast<Number>(
                Checked(*member, key, least, most, std::is_floating_point_v<Number>));
        }
    }
    template <typename T, typename Parse>
    void ReadText(const char* key, T& value, Parse parse, const char* shape) {
        std::string text;
        Read(key, text);
        if (text.empty()) {
            return;
        }
        const auto parsed = parse(text);
        if (!parsed) {
            Fail(key, fmt::format("\"{}\" is not {}", text, shape));
        }
        value = *parsed;
    }
    // The members of a list, each with its path; none when it is not there.
    std::vector<std::pair<const nlohmann::json*, std::string>> ReadList(const char* key);
    // A member that may be there and means nothing to whoever reads.
    void Skip(const char* key) { m_known.emplace_back(key); }

    // A misspelt key would otherwise be a setting that silently does nothing.
    void RefuseUnknownKeys() const;

private:
    const nlohmann::json* Find(const char* key);
    double Checked(const nlohmann::json& member, const char* key, double least, double most,
                   bool mayBeBroken) const;
    std::string PathOf(const std::string& member) const;

    const nlohmann::json& m_object;
    std::string m_place;
    std::vector<std::string> m_known;
};

}  // namespace lansim
