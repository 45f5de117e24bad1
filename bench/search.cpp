// One camera search as a program of its own, to be measured from outside: bench_search ADDRESS
// SECONDS prints each camera as "IP PORT MAC" and ends with the search. Its last line, "cpu
// SECONDS", is without the programs that the search runs.
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "utils/wsdiscoverybase.h"

namespace {

double Seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: bench_search ADDRESS SECONDS\n");
        return 2;
    }
    WSDiscoveryBase search(argv[1], std::atoi(argv[2]));
    if (search.StartSearch() != 0) {
        return 1;
    }
    search.StopSearch();
    std::vector<ONVIF_CAM_SEARCH_INFO> cameras;
    search.CamAllGet(cameras);
    for (const ONVIF_CAM_SEARCH_INFO& camera : cameras) {
        std::printf("%s %d %s\n", camera.strIp.c_str(), camera.nPort, camera.strMac.c_str());
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("cpu %.6f\n", Seconds(usage.ru_utime) + Seconds(usage.ru_stime));
    return 0;
}
