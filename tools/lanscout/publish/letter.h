// What is to stand at the broker, or to be told by it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Lanscout {

struct Letter {
    std::string topic;
    std::string payload;  // empty: nothing is to be kept there any more
    bool retain = true;
    std::string subject;  // of those that are not kept: a later one of the same subject replaces it

    bool operator==(const Letter&) const = default;
};

// One line, with its line end.
std::string EncodeLetter(const Letter& letter);

// Nothing when the line is none of ours.
std::optional<Letter> DecodeLetter(std::string_view line);

}  // namespace Lanscout
