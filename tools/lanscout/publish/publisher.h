// Publishes what a watch finds, through a process of its own.
#pragma once

#include <functional>
#include <optional>

#include "finder/broker/brokersettings.h"
#include "finder/source/sourceprocess.h"
#include "tools/lanscout/publish/publication.h"

namespace Lanscout {

struct PublishSettings {
    BrokerSettings broker;
    SiteSettings site;
};

// To be called while the process has one thread only: it forks. A broker, or the process, that does
// not work costs the watch nothing but a problem that is told.
class SitePublisher {
public:
    using TellProblem = std::function<void(const Problem& problem)>;

    SitePublisher(PublishSettings settings, TellProblem tell);
    ~SitePublisher();  // the site is offline then
    SitePublisher(const SitePublisher&) = delete;
    SitePublisher& operator=(const SitePublisher&) = delete;

    void OnEvent(const DeviceEvent& event);

    // A round has ended; `list` has those that are gone too.
    void EndRound(const Report& report, std::span<const ListedDevice> list);

    // Tells what the process has told. To be called every second or so.
    void TellProblems();

private:
    bool Start();
    void Send(const Letter& letter);

    PublishSettings m_settings;
    Publication m_publication;
    TellProblem m_tell;
    std::optional<SourceProcess> m_process;
};

}  // namespace Lanscout
