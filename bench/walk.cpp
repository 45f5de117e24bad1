// What a cycle costs by the number of senders, over a network in memory: the receive into the reply
// map, the walk over it and the check for senders that are listed. Prints a table as JSON.
//
// A short text in place of XML keeps the parse out of the way; it is measured on its own.
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "control/standalonehost.h"
#include "fuzz/fakenetwork.h"
#include "utils/wsdiscoverybase.h"

namespace {

constexpr std::uint32_t kFirstSender = 0x0A000100;  // 10.0.1.0
constexpr int kSearchSeconds = 36'000;
constexpr int kLaterCycles = 8;
constexpr int kRuns = 5;
constexpr std::size_t kMostForPlainCheck = 10'000;

class Search : public WSDiscoveryBase {
public:
    Search() : WSDiscoveryBase("127.0.0.1", kSearchSeconds) {}
    void Run() { ThreadFunc(this); }
};

double CpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

std::vector<FakeNetwork::Datagram> Datagrams(std::size_t senders, std::string_view text) {
    std::vector<FakeNetwork::Datagram> datagrams;
    for (std::size_t i = 0; i < senders; ++i) {
        datagrams.push_back({kFirstSender + static_cast<std::uint32_t>(i), text});
    }
    return datagrams;
}

// The least of some runs: whatever else runs on the machine only ever adds.
template <typename Function>
double LeastSeconds(Function run) {
    double least = 1e9;
    for (int i = 0; i < kRuns; ++i) {
        least = std::min(least, run());
    }
    return least;
}

double SearchSeconds(std::size_t senders, int laterCycles, FakeNetwork::Later later) {
    Search search;
    FakeNetwork::Network network(Datagrams(senders, "x"), laterCycles, later);
    const double start = CpuSeconds();
    search.Run();
    return CpuSeconds() - start;
}

// Each sender looked up in the list, as IsDuplicatedCam does it.
double PlainCheckSeconds(std::size_t senders) {
    Search search;
    {
        FakeNetwork::Network network(Datagrams(senders, "x"), 0);
        search.Run();
    }
    std::vector<ONVIF_CAM_SEARCH_INFO> cameras;
    search.CamAllGet(cameras);
    const double start = CpuSeconds();
    std::size_t known = 0;
    for (const ONVIF_CAM_SEARCH_INFO& camera : cameras) {
        known += search.IsDuplicatedCam(camera.strIp) ? 1 : 0;
    }
    return known == cameras.size() ? CpuSeconds() - start : -1;
}

void Measure(std::size_t senders, bool isFirst) {
    using FakeNetwork::Later;
    const double first = LeastSeconds([&] { return SearchSeconds(senders, 0, Later::Same); });
    const double same =
        LeastSeconds([&] { return SearchSeconds(senders, kLaterCycles, Later::Same); });
    const double silent =
        LeastSeconds([&] { return SearchSeconds(senders, kLaterCycles, Later::Silent); });
    std::printf("%s\n  {\"senders\": %zu, \"first\": %.9f, \"again\": %.9f, \"silent\": %.9f",
                isFirst ? "" : ",", senders, first, (same - first) / kLaterCycles,
                (silent - first) / kLaterCycles);
    if (senders <= kMostForPlainCheck) {
        std::printf(", \"plainCheck\": %.9f",
                    LeastSeconds([&] { return PlainCheckSeconds(senders); }));
    }
    std::printf("}");
    std::fflush(stdout);
}

}  // namespace

int main() {
    StandaloneHost::AttachLogConfig();
    bool isFirst = true;
    std::printf("[");
    for (const std::size_t senders : {10, 100, 1'000, 3'000, 10'000, 30'000, 60'000}) {
        Measure(senders, isFirst);
        isFirst = false;
    }
    std::printf("\n]\n");
}
