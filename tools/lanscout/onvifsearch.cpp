#include "tools/lanscout/onvifsearch.h"

#include <chrono>
#include <string>
#include <unordered_map>

#include "tools/lanscout/librarylog.h"
#include "tools/lanscout/safetext.h"
#include "tools/lanscout/typeprobe.h"
#include "utils/wsdiscoverybase.h"

namespace LanscoutTool {
namespace {

constexpr std::chrono::milliseconds kPollInterval{50};
constexpr std::chrono::seconds kAskAgainAfter{2};  // a lost Probe is made up for once

Device FromRecord(const CAM_SEARCH_INFO& record) {
    Device device;
    device.onvif = true;
    device.ip = record.strIp;
    device.port = record.nPort;
    // Scopes are URIs; the library undoes the encoding of spaces alone.
    device.hardware = ToKeptText(DecodePercent(record.strHardware));
    if (record.strMac != "N/A") {
        device.mac = record.strMac;
    }
    return device;
}

class OnvifSearch {
public:
    OnvifSearch(const Target& target, int seconds, Sender& sender)
        : m_search(target.address, seconds), m_types(target.address), m_sender(sender) {}

    void Run() {
        m_types.Ask();
        if (m_search.StartSearch() != 0) {
            return m_sender.Send(FailureMessage{"no thread could be created for the search", 0});
        }
        const auto askAgain = std::chrono::steady_clock::now() + kAskAgainAfter;
        for (bool asked = false; m_search.IsRunning();) {
            ReportKinds(m_types.Listen(kPollInterval));
            ReportNew();
            if (!asked && std::chrono::steady_clock::now() > askAgain) {
                m_types.Ask();
                asked = true;
            }
        }
        m_search.StopSearch();
        ReportKinds(m_types.Listen(std::chrono::milliseconds(0)));
        ReportNew();
        m_sender.Send(DoneMessage{});
    }

private:
    void Report(Device device) {
        device.kind = m_types.KindOf(device.ip);
        m_sender.Send(FoundMessage{std::move(device)});
    }

    void ReportNew() {
        const auto count = static_cast<unsigned int>(m_search.CamCountGet());
        for (; m_reported < count; ++m_reported) {
            CAM_SEARCH_INFO record;
            if (m_search.CamGet(m_reported, record) == 0) {
                m_indexes.emplace(record.strIp, m_reported);
                Report(FromRecord(record));
            }
        }
    }

    // What is not listed yet will be reported with its kind when it is.
    void ReportKinds(const std::vector<std::string>& ips) {
        for (const std::string& ip : ips) {
            const auto index = m_indexes.find(ip);
            CAM_SEARCH_INFO record;
            if (index != m_indexes.end() && m_search.CamGet(index->second, record) == 0) {
                Report(FromRecord(record));
            }
        }
    }

    WSDiscoveryBase m_search;
    TypeProbe m_types;
    Sender& m_sender;
    unsigned int m_reported = 0;
    std::unordered_map<std::string, unsigned int> m_indexes;  // of the reported records, by address
};

}  // namespace

void RunOnvifSearch(const Target& target, int seconds, Sender& sender) {
    SendLibraryLog(sender);
    OnvifSearch(target, seconds, sender).Run();
}

}  // namespace LanscoutTool
