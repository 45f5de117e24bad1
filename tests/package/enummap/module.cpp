// One shared object of several that look the same enums up.
#include "log/dbglog.h"

extern "C" [[gnu::visibility("default")]] const char* LevelText(int level) {
    return Enum2String(static_cast<LOG_LEVEL>(level));
}

extern "C" [[gnu::visibility("default")]] const char* CategoryText(int category) {
    return Enum2String(static_cast<LOG_CATEG>(category));
}
