// Reply datagrams, from the receive loop to the finished records and log lines.
//
// Input: datagrams, each but the first after a byte 0x1E (no character of XML) and a byte that says
// who sends it. So a plain XML file is one datagram of one sender.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "control/standalonehost.h"
#include "fuzz/check.h"
#include "fuzz/fakenetwork.h"
#include "utils/wsdiscoverybase.h"

namespace {

constexpr char kSeparator = '\x1e';
constexpr std::uint32_t kFirstSender = 0x0A630000;  // 10.99.0.0
constexpr std::size_t kLargestDatagram = 4096;
constexpr std::size_t kMostDatagrams = 32;  // each empty one is a cycle; many are only slow
constexpr int kSearchSeconds = 36'000;      // of the fake network's clock

class Search : public WSDiscoveryBase {
public:
    Search() : WSDiscoveryBase("127.0.0.1", kSearchSeconds) {}
    void Run() { ThreadFunc(this); }
};

std::vector<FakeNetwork::Datagram> Split(std::string_view input) {
    std::vector<FakeNetwork::Datagram> datagrams;
    std::uint32_t sender = kFirstSender;
    for (;;) {
        const bool isLast = datagrams.size() + 1 == kMostDatagrams;
        const std::size_t end = isLast ? std::string_view::npos : input.find(kSeparator);
        datagrams.push_back({sender, input.substr(0, end)});
        if (end == std::string_view::npos || end + 1 == input.size()) {
            return datagrams;
        }
        sender = kFirstSender + static_cast<unsigned char>(input[end + 1]);
        input.remove_prefix(end + 2);
    }
}

std::string TextOf(std::uint32_t ip) {
    return std::to_string(ip >> 24) + '.' + std::to_string(ip >> 16 & 0xFF) + '.' +
           std::to_string(ip >> 8 & 0xFF) + '.' + std::to_string(ip & 0xFF);
}

// Who is listed, and in which order: in each cycle, which an empty datagram ends too, the senders
// that are new, by their address's text. The empty datagram's sender is not heard.
std::vector<std::string> ExpectedSenders(const std::vector<FakeNetwork::Datagram>& datagrams) {
    std::vector<std::string> listed;
    std::set<std::string> cycle;
    const auto endCycle = [&] {
        for (const std::string& ip : cycle) {
            if (std::find(listed.begin(), listed.end(), ip) == listed.end()) {
                listed.push_back(ip);
            }
        }
        cycle.clear();
    };
    for (const FakeNetwork::Datagram& datagram : datagrams) {
        if (datagram.bytes.empty()) {
            endCycle();
        } else {
            cycle.insert(TextOf(datagram.sender));
        }
    }
    endCycle();
    return listed;
}

// Neither ASCII's control characters nor, in UTF-8, those from U+0080 to U+009F.
bool IsSafeLine(std::string_view line) {
    unsigned char previous = 0;
    for (const char byte : line.substr(0, line.size() - 1)) {
        const auto character = static_cast<unsigned char>(byte);
        if (character < 0x20 || character == 0x7F || (previous == 0xC2 && character < 0xA0)) {
            return false;
        }
        previous = character;
    }
    return line.back() == '\n';
}

void TakeRecord(const StandaloneHost::LogRecord& record, void*) {
    Check(!record.line.empty() && IsSafeLine(record.line), "a log line has no control characters");
    Check(record.line.ends_with(std::string(record.text) + "\n"), "the line ends with the text");
}

void CheckRecord(const ONVIF_CAM_SEARCH_INFO& camera, const std::string& ip) {
    Check(camera.strIp == ip, "senders are listed in the order of their cycle and address");
    Check(camera.strProtocol == "ONVIF", "the protocol is ONVIF");
    Check(camera.strMac == "N/A" || camera.strMac.size() == 17, "the MAC address is one");
    Check(camera.strHardware.find('\0') == std::string::npos, "text ends at a zero byte");
    Check(camera.strHardware.size() <= 3 * kLargestDatagram, "the hardware came in one datagram");
}

void CheckRecords(Search& search, const std::vector<std::string>& senders) {
    std::vector<ONVIF_CAM_SEARCH_INFO> cameras;
    Check(search.CamAllGet(cameras) == 0, "the list can be read");
    Check(cameras.size() == senders.size(), "every sender is listed once");
    for (std::size_t i = 0; i < cameras.size(); ++i) {
        CheckRecord(cameras[i], senders[i]);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    StandaloneHost::SetLogSink(TakeRecord, nullptr);
    StandaloneHost::AttachLogConfig();
    StandaloneHost::SetCategoryLevel(LOG_CATEG_DISCOVERY, LOG_LEVEL_INFO);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto datagrams = Split({reinterpret_cast<const char*>(data), size});
    Search search;
    {
        FakeNetwork::Network network(datagrams);
        search.Run();
        Check(network.Probes() >= 2 && network.Probes() % 2 == 0, "Probes go out in pairs");
    }
    Check(!search.IsRunning(), "the search has ended");
    CheckRecords(search, ExpectedSenders(datagrams));
    return 0;
}
