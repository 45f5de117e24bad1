#include "finder/source/camerasearch.h"

#include <unistd.h>

#include <chrono>
#include <map>
#include <memory>
#include <string_view>
#include <thread>
#include <vector>

#include "control/standalonehost.h"
#include "finder/source/confine.h"
#include "finder/source/datagrams.h"
#include "finder/source/explain.h"
#include "finder/source/librarylog.h"
#include "finder/text/addresstext.h"
#include "finder/text/safetext.h"
#include "utils/wsdiscoverybase.h"

namespace Lanscout {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPollInterval{50};
constexpr std::chrono::milliseconds kLastAnswers{200};

class TargetSearch : public WSDiscoveryBase {
public:
    TargetSearch(Target target, int seconds)
        : WSDiscoveryBase(target.address, seconds), m_target(std::move(target)) {}

    // False when the thread could not be created.
    bool Start() {
        m_running = StartSearch() == 0;
        return m_running;
    }

    bool HasEnded() { return !m_running || !IsRunning(); }
    pthread_t Thread() const { return m_thread; }
    const Target& Where() const { return m_target; }

    void SendNews(Sender& sender) {
        const auto count = static_cast<unsigned int>(CamCountGet());
        for (; m_reported < count; ++m_reported) {
            CAM_SEARCH_INFO record;
            if (CamGet(m_reported, record) == 0 && IsIpv4Text(record.strIp)) {
                sender.Send(SightingMessage{{SourceId::CameraSearch, m_target, ToDevice(record)}});
            }
        }
    }

private:
    static Device ToDevice(const CAM_SEARCH_INFO& record) {
        Device device;
        device.ip = record.strIp;
        device.port = record.nPort;
        device.protocols.onvif = true;
        // Scopes are URIs; the library undoes the encoding of spaces alone.
        device.hardware = ToKeptText(DecodePercent(record.strHardware));
        device.mac = record.strMac == "N/A" ? "" : record.strMac;
        return device;
    }

    Target m_target;
    bool m_running = false;
    unsigned int m_reported = 0;
};

// What will be said where the port cannot be had. It is asked beforehand who has it: later this
// process may look at no other one.
using Foreseen = std::map<Target, FailureMessage>;

Foreseen TryPorts(const std::vector<Target>& targets) {
    Foreseen foreseen;
    for (const Target& target : targets) {
        if (const int error = OpenSocketAt(target.address, kDiscoveryPort, 0).error; error != 0) {
            foreseen.emplace(target, ExplainBind(target, error));
        }
    }
    return foreseen;
}

FailureMessage Explain(const Target& target, const LoggedFailure& failure,
                       const Foreseen& foreseen) {
    constexpr std::string_view kBind = "Bind socket failed. [%d]\n";
    constexpr std::string_view kSend = "Send probe message failed. [%d]\n";
    constexpr std::string_view kSocket = "Create socket failed. [%d]\n";
    if (failure.format == kBind) {
        const auto known = foreseen.find(target);
        if (known != foreseen.end()) {
            return known->second;
        }
        return ExplainBind(target, failure.number);
    }
    if (failure.format == kSend) {
        return ExplainSend(target, failure.number);
    }
    return ExplainOther(target,
                        failure.format == kSocket ? "no socket could be created"
                                                  : "the camera search ended before its time",
                        failure.number);
}

}  // namespace

void RunCameraSearch(const Job& job, Sender& sender) {
    LibraryLog log(sender);
    StandaloneHost::SetProcessRunner([](const char*, const char* const*) { return -1; });
    const auto time = job.request.timeout;
    const auto end = Clock::now() + time + kLastAnswers;
    const Foreseen foreseen = TryPorts(job.targets);
    ConfineSource({.sockets = true, .threads = true, .time = time}, sender);
    std::vector<std::unique_ptr<TargetSearch>> searches;
    for (const Target& target : job.targets) {
        auto search = std::make_unique<TargetSearch>(target, static_cast<int>(time.count()));
        if (search->Start()) {
            searches.push_back(std::move(search));
        } else {
            sender.Send(ExplainOther(target, "no thread could be created for the search", 0));
        }
    }
    const auto timeIsOver = Clock::now() + time;
    while (!searches.empty() && Clock::now() < end) {
        std::this_thread::sleep_for(kPollInterval);
        std::erase_if(searches, [&](const auto& search) {
            search->SendNews(sender);
            if (!search->HasEnded()) {
                return false;
            }
            search->SendNews(sender);
            if (Clock::now() < timeIsOver) {
                sender.Send(Explain(search->Where(), log.FailureOf(search->Thread()), foreseen));
            }
            return true;
        });
    }
    sender.Send(DoneMessage{});
    // A search that still listens for last answers would do so for seconds, and destroying it would
    // wait for it. The process is at its end either way.
    _exit(0);
}

}  // namespace Lanscout
