#include "host/standalone/logenums.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

constexpr std::array<std::pair<LOG_LEVEL, const char*>, 4> kLevels{{{LOG_LEVEL_ERROR, "ERROR"},
                                                                    {LOG_LEVEL_WARNING, "WARNING"},
                                                                    {LOG_LEVEL_NOTICE, "NOTICE"},
                                                                    {LOG_LEVEL_INFO, "INFO"}}};

}  // namespace

template <>
ZelEnum2StrMap<LOG_LEVEL>::ZelEnum2StrMap()
    : std::map<LOG_LEVEL, const char*>(kLevels.begin(), kLevels.end()) {}

template <>
ZelEnum2StrMap<LOG_CATEG>::ZelEnum2StrMap()
    : std::map<LOG_CATEG, const char*>{{LOG_CATEG_DISCOVERY, "discovery"}} {}

LOG_LEVEL LevelOfText(std::string_view text) {
    const auto* const found = std::find_if(kLevels.begin(), kLevels.end(),
                                           [text](const auto& one) { return one.second == text; });
    return found == kLevels.end() ? LOG_LEVEL{} : found->first;
}
