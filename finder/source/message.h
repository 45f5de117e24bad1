// What a search's own process tells the tool, one JSON text a line.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "finder/device/device.h"

namespace Lanscout {

// A device as far as this search knows it; may come again with more.
struct FoundMessage {
    Device device;
};

// A line of the library's log.
struct LogMessage {
    int level = 0;
    std::string line;
};

// The search could not be done; `code` is the UPnP library's, or an errno value.
struct FailureMessage {
    std::string what;
    int code = 0;
};

// The search came to its end; a process that ends without having said so has died.
struct DoneMessage {};

using Message = std::variant<FoundMessage, LogMessage, FailureMessage, DoneMessage>;

// One line, with its line end.
std::string EncodeMessage(const Message& message);

// Nothing when the line is none of ours.
std::optional<Message> DecodeMessage(std::string_view line);

}  // namespace Lanscout
