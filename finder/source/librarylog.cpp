#include "finder/source/librarylog.h"

#include <array>

#include "control/standalonehost.h"
#include "host/zellog.h"

namespace Lanscout {
namespace {

void Take(const char* line, std::size_t length, void* cookie) {
    const std::string_view text(line, length == 0 ? 0 : length - 1);
    static_cast<Sender*>(cookie)->Send(LogMessage{LevelOfLine(text), std::string(text)});
}

struct NamedLevel {
    std::string_view text;
    LOG_LEVEL level;
};

constexpr std::array kLevels{
    NamedLevel{" ERROR ", LOG_LEVEL_ERROR}, NamedLevel{" WARNING ", LOG_LEVEL_WARNING},
    NamedLevel{" NOTICE ", LOG_LEVEL_NOTICE}, NamedLevel{" INFO ", LOG_LEVEL_INFO}};

}  // namespace

void SendLibraryLog(Sender& sender) {
    StandaloneHost::SetLogSink(&Take, &sender);
    StandaloneHost::AttachLogConfig();
    StandaloneHost::SetCategoryLevel(LOG_CATEG_DISCOVERY, LOG_LEVEL_INFO);
}

int LevelOfLine(std::string_view line) {
    int level = 0;
    std::size_t first = std::string_view::npos;
    for (const NamedLevel& one : kLevels) {
        if (const auto at = line.find(one.text); at < first) {
            first = at;
            level = one.level;
        }
    }
    return level;
}

}  // namespace Lanscout
