#include "tests/unit/support/enum2stringother.h"

#include "log/dbglog.h"

const char* LevelTextOfOtherObject(int level) {
    return Enum2String(static_cast<LOG_LEVEL>(level));
}

const char* CategoryTextOfOtherObject(int category) {
    return Enum2String(static_cast<LOG_CATEG>(category));
}
