#include <cstdio>
#include <vector>

#include "utils/wsdiscoverybase.h"

int main(int argc, char** argv) {
    WSDiscoveryBase search(argc > 1 ? argv[1] : "192.168.1.2", 5);
    search.StartSearch();
    search.StopSearch();  // waits until the search has ended

    std::vector<ONVIF_CAM_SEARCH_INFO> cameras;
    search.CamAllGet(cameras);
    for (const auto& camera : cameras) {
        std::printf("%s port %d: %s, %s\n", camera.strIp.c_str(), camera.nPort,
                    camera.strHardware.c_str(), camera.strMac.c_str());
    }
    return cameras.empty() ? 1 : 0;
}
