#include "tools/lanscout/onvifsearch.h"

#include <chrono>
#include <thread>

#include "control/standalonehost.h"
#include "host/zellog.h"
#include "tools/lanscout/librarylog.h"
#include "tools/lanscout/safetext.h"
#include "utils/wsdiscoverybase.h"

namespace LanscoutTool {
namespace {

constexpr std::chrono::milliseconds kPollInterval{50};

Device FromRecord(const CAM_SEARCH_INFO& record) {
    Device device;
    device.onvif = true;
    device.ip = record.strIp;
    device.port = record.nPort;
    device.hardware = ToKeptText(record.strHardware);
    if (record.strMac != "N/A") {
        device.mac = record.strMac;
    }
    return device;
}

class Reporter {
public:
    Reporter(WSDiscoveryBase& search, Sender& sender) : m_search(search), m_sender(sender) {}

    void ReportNew() {
        const auto count = static_cast<unsigned int>(m_search.CamCountGet());
        for (CAM_SEARCH_INFO record; m_reported < count; ++m_reported) {
            if (m_search.CamGet(m_reported, record) == 0) {
                m_sender.Send(FoundMessage{FromRecord(record)});
            }
        }
    }

private:
    WSDiscoveryBase& m_search;
    Sender& m_sender;
    unsigned int m_reported = 0;
};

}  // namespace

void RunOnvifSearch(const Target& target, int seconds, Sender& sender) {
    SendLibraryLog(sender);
    WSDiscoveryBase search(target.address, seconds);
    if (search.StartSearch() != 0) {
        return sender.Send(FailureMessage{"no thread could be created for the search", 0});
    }
    Reporter reporter(search, sender);
    while (search.IsRunning()) {
        reporter.ReportNew();
        std::this_thread::sleep_for(kPollInterval);
    }
    search.StopSearch();
    reporter.ReportNew();
    sender.Send(DoneMessage{});
}

}  // namespace LanscoutTool
