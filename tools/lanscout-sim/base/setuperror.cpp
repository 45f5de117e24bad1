#include "tools/lanscout-sim/base/setuperror.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>

namespace lansim {

void FailWithErrno(const std::string& what, const std::string& advice) {
    const char* reason = std::strerror(errno);
    throw SetupError(fmt::format("{}: {}{}{}", what, reason, advice.empty() ? "" : "; ", advice));
}

}  // namespace lansim
