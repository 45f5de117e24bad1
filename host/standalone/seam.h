// The seam's declarations with default visibility: the headers themselves say nothing of it, since
// a server that defines them has its own rules. Every source here that defines part of the seam
// includes this first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#pragma GCC visibility push(default)
#include "control/standalonehost.h"
#include "host/karnexec.h"
#include "host/sdkfuncdata.h"
#include "host/zellog.h"
#include "host/zelnet.h"
#include "host/zelstring.h"
#pragma GCC visibility pop
