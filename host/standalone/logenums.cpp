#include "host/standalone/seam.h"

template <>
ZelEnum2StrMap<LOG_LEVEL>::ZelEnum2StrMap()
    : std::map<LOG_LEVEL, const char*>{{LOG_LEVEL_ERROR, "ERROR"},
                                       {LOG_LEVEL_WARNING, "WARNING"},
                                       {LOG_LEVEL_NOTICE, "NOTICE"},
                                       {LOG_LEVEL_INFO, "INFO"}} {}

template <>
ZelEnum2StrMap<LOG_CATEG>::ZelEnum2StrMap()
    : std::map<LOG_CATEG, const char*>{{LOG_CATEG_DISCOVERY, "discovery"}} {}
