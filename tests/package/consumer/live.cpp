#include <chrono>
#include <cstdio>
#include <thread>

#include "control/standalonehost.h"
#include "utils/wsdiscoverybase.h"

namespace {

void ToStandardOutput(const StandaloneHost::LogRecord& record, void*) {
    std::fwrite(record.line.data(), 1, record.line.size(), stdout);
}

}  // namespace

int main(int argc, char** argv) {
    StandaloneHost::SetLogSink(ToStandardOutput, nullptr);
    StandaloneHost::AttachLogConfig();
    StandaloneHost::SetCategoryLevel(LOG_CATEG_DISCOVERY, LOG_LEVEL_INFO);

    WSDiscoveryBase search(argc > 1 ? argv[1] : "192.168.1.2", 5);
    if (search.StartSearch() != 0) {
        return 1;
    }
    unsigned int shown = 0;
    for (bool running = true; running;
         std::this_thread::sleep_for(std::chrono::milliseconds(100))) {
        running = search.IsRunning();  // asked first, so that the last ones are shown too
        for (CAM_SEARCH_INFO camera; search.CamGet(shown, camera) == 0; ++shown) {
            std::printf("%s port %d\n", camera.strIp.c_str(), camera.nPort);
        }
    }
    search.StopSearch();
    return shown > 0 ? 0 : 1;
}
