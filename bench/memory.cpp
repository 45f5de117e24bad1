// The memory that searches leave behind: a thousand of them, one after the other, over a network in
// memory where the same cameras answer each time. Prints one line of JSON.
#include <malloc.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "control/standalonehost.h"
#include "fuzz/fakenetwork.h"
#include "utils/wsdiscoverybase.h"

namespace {

constexpr int kSearches = 1000;
constexpr std::uint32_t kCameras = 20;
constexpr std::uint32_t kFirstCamera = 0x0A000100;  // 10.0.1.0
constexpr int kSearchSeconds = 36'000;

class Search : public WSDiscoveryBase {
public:
    Search() : WSDiscoveryBase("127.0.0.1", kSearchSeconds) {}
    void Run() { ThreadFunc(this); }
};

std::string ReadSeed(const std::string& name) {
    std::ifstream file(std::string(BENCH_SEEDS) + "/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void SearchOnce(const std::vector<FakeNetwork::Datagram>& replies) {
    FakeNetwork::Network network(replies);
    Search search;
    search.Run();
}

std::size_t AllocatedBytes() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

long ResidentKilobytes() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") {
            long kilobytes = 0;
            status >> kilobytes;
            return kilobytes;
        }
    }
    return -1;
}

}  // namespace

int main() {
    StandaloneHost::AttachLogConfig();
    const std::string reply = ReadSeed("northgate_many_prefixes.xml");
    std::vector<FakeNetwork::Datagram> replies;
    for (std::uint32_t i = 0; i < kCameras; ++i) {
        replies.push_back({kFirstCamera + i, reply});
    }
    SearchOnce(replies);  // what libraries set up once
    const std::size_t allocated = AllocatedBytes();
    const long resident = ResidentKilobytes();
    for (int i = 0; i < kSearches; ++i) {
        SearchOnce(replies);
    }
    const double found = static_cast<double>(kSearches) * kCameras;
    const auto kept = static_cast<double>(AllocatedBytes()) - static_cast<double>(allocated);
    const auto grown = static_cast<double>(ResidentKilobytes() - resident) * 1024;
    std::printf(
        "{\"searches\": %d, \"cameras\": %u, \"replyBytes\": %zu, \"allocatedPerCamera\": %.1f, "
        "\"residentPerCamera\": %.1f}\n",
        kSearches, kCameras, reply.size(), kept / found, grown / found);
}
