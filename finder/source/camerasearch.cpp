#include "finder/source/camerasearch.h"

#include <chrono>
#include <utility>

#include "finder/source/librarylog.h"
#include "finder/source/onvifdevice.h"
#include "finder/source/typeprobe.h"
#include "utils/wsdiscoverybase.h"

namespace Lanscout {
namespace {

constexpr std::chrono::milliseconds kPollInterval{50};
constexpr std::chrono::milliseconds kSetUpTime{
    100};                                          // a search that cannot be done has ended by then
constexpr std::chrono::seconds kAskAgainAfter{3};  // a lost Probe or reply is made up for

class OnvifSearch {
public:
    OnvifSearch(const Target& target, int seconds, Sender& sender)
        : m_search(target.address, seconds),
          m_types(target.address),
          m_sender(sender),
          m_time(seconds) {}

    void Run() {
        if (m_search.StartSearch() != 0) {
            return m_sender.Send(FailureMessage{"no thread could be created for the search", 0});
        }
        const auto start = std::chrono::steady_clock::now();
        for (auto next = start + kSetUpTime; m_search.IsRunning();) {
            ReportReplies(kPollInterval);
            ReportRecords();
            if (const auto now = std::chrono::steady_clock::now();
                now > next && now < start + m_time) {
                m_types.Ask();
                next = now + kAskAgainAfter;
            }
        }
        m_search.StopSearch();
        ReportReplies(std::chrono::milliseconds(0));
        ReportRecords();
        m_sender.Send(DoneMessage{});
    }

private:
    void ReportReplies(std::chrono::milliseconds wait) {
        for (Device& device : m_types.Listen(wait)) {
            m_sender.Send(FoundMessage{std::move(device)});
        }
    }

    void ReportRecords() {
        const auto count = static_cast<unsigned int>(m_search.CamCountGet());
        for (; m_reported < count; ++m_reported) {
            CAM_SEARCH_INFO record;
            if (m_search.CamGet(m_reported, record) != 0) {
                continue;
            }
            Device device = OnvifDevice(record.strIp, record.nPort, record.strHardware,
                                        m_types.KindOf(record.strIp));
            if (record.strMac != "N/A") {
                device.mac = record.strMac;
            }
            m_sender.Send(FoundMessage{std::move(device)});
        }
    }

    WSDiscoveryBase m_search;
    TypeProbe m_types;
    Sender& m_sender;
    std::chrono::seconds m_time;
    unsigned int m_reported = 0;
};

}  // namespace

void RunOnvifSearch(const Target& target, int seconds, Sender& sender) {
    SendLibraryLog(sender);
    OnvifSearch(target, seconds, sender).Run();
}

}  // namespace Lanscout
