#include "tools/lanscout/task/service.h"

#include <systemd/sd-daemon.h>

namespace Lanscout {

void SystemdService::Ready() {
    sd_notify(0, "READY=1");
}

void SystemdService::Reloading() {
    sd_notify(0, "RELOADING=1");
}

void SystemdService::Alive() {
    sd_notify(0, "WATCHDOG=1");
}

void SystemdService::Status(const std::string& text) {
    sd_notify(0, ("STATUS=" + text).c_str());
}

}  // namespace Lanscout
