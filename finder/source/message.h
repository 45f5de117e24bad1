// What a source's process tells its parent, one JSON text a line.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "finder/device/sighting.h"

namespace Lanscout {

// A device as far as this source knows it; may come again with more.
struct SightingMessage {
    Sighting sighting;
};

// A line of the library's log.
struct LogMessage {
    int level = 0;
    std::string text;
};

// This target (an empty address: each of the job) cannot be searched, or no longer.
struct FailureMessage {
    Target target;
    std::string what;
    std::string remedy;  // what to do; may be empty
};

// The result is less than it could be, or says something about the network.
struct NoticeMessage {
    Target target;
    std::string what;
    std::string remedy;
};

// The source came to its end; a process that ends without having said so has died.
struct DoneMessage {};

using Message =
    std::variant<SightingMessage, LogMessage, FailureMessage, NoticeMessage, DoneMessage>;

// One line, with its line end.
std::string EncodeMessage(const Message& message);

// Nothing when the line is none of ours.
std::optional<Message> DecodeMessage(std::string_view line);

}  // namespace Lanscout
