#include "finder/source/confine.h"

#include <string>

namespace Lanscout {
namespace {

constexpr int kFailureLevel = 3;  // of the library's log: shown with the first --verbose

}  // namespace

void ConfineSource(const Freedom& freedom, Sender& sender) {
    for (const std::string& line : GiveUpRights(freedom)) {
        sender.Send(LogMessage{kFailureLevel, line});
    }
}

}  // namespace Lanscout
