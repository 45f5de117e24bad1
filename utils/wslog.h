// The logging operation as the camera search uses it: its category and its place.
#pragma once

#include "log/dbglog.h"

#define WS_LOG(level, ...) DBG_LOG(LOG_CATEG_DISCOVERY, level, "utils/wsdiscoverybase", __VA_ARGS__)
#define WS_LOG_OF(function, level, ...) \
    DBG_LOG_OF(function, LOG_CATEG_DISCOVERY, level, "utils/wsdiscoverybase", __VA_ARGS__)
