// What a log line of the camera search must look like.
#pragma once

#include <gmock/gmock.h>

#include <ostream>
#include <string>

#include "tests/unit/support/recordinghost.h"

namespace RecordingHost {

inline void PrintTo(const LogLine& line, std::ostream* out) {
    *out << line.level << " " << line.file << ":" << line.line << " " << line.function << " "
         << testing::PrintToString(line.format) << " " << testing::PrintToString(line.message);
}

// One whole line: sink, category, level, place, format and text.
inline auto IsLine(int level, const std::string& function, const std::string& format,
                   const std::string& message) {
    using testing::AllOf, testing::EndsWith, testing::Field, testing::Gt;
    const char* const text = level == 1   ? "level-one"
                             : level == 3 ? "level-three"
                             : level == 4 ? "level-four"
                                          : "no such level";
    return AllOf(
        Field("type", &LogLine::type, 0), Field("category", &LogLine::category, "category-seven"),
        Field("level", &LogLine::level, text),
        Field("file", &LogLine::file, "utils/wsdiscoverybase"),
        Field("line", &LogLine::line, Gt(0)), Field("function", &LogLine::function, function),
        Field("format", &LogLine::format, AllOf(format, EndsWith("\n"))),
        Field("message", &LogLine::message, message));
}

// A line without arguments.
inline auto IsLine(int level, const std::string& function, const std::string& text) {
    return IsLine(level, function, text, text);
}

}  // namespace RecordingHost
