#include "finder/source/librarylog.h"

#include "control/standalonehost.h"
#include "host/zellog.h"

namespace Lanscout {
namespace {

void Take(const StandaloneHost::LogRecord& record, void* cookie) {
    const std::string_view line = record.line.substr(0, record.line.size() - 1);
    static_cast<Sender*>(cookie)->Send(LogMessage{record.level, std::string(line)});
}

}  // namespace

void SendLibraryLog(Sender& sender) {
    StandaloneHost::SetLogSink(&Take, &sender);
    StandaloneHost::AttachLogConfig();
    StandaloneHost::SetCategoryLevel(LOG_CATEG_DISCOVERY, LOG_LEVEL_INFO);
}

}  // namespace Lanscout
