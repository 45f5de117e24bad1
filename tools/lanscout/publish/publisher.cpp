#include "tools/lanscout/publish/publisher.h"

#include <poll.h>

#include <cerrno>
#include <cstring>
#include <utility>
#include <variant>

#include "tools/lanscout/publish/publisherprocess.h"

namespace Lanscout {
namespace {

using std::chrono::milliseconds;

// The process reads at once whatever the broker does; one that does not is broken.
constexpr milliseconds kWriteTime{1000};

// A little longer than it gives itself for its goodbye.
constexpr milliseconds kEndTime{3500};

Problem NoticeOf(std::string what, std::string remedy) {
    Problem problem;
    problem.weight = Problem::Weight::Notice;
    problem.what = std::move(what);
    problem.remedy = std::move(remedy);
    return problem;
}

}  // namespace

SitePublisher::SitePublisher(PublishSettings settings, TellProblem tell)
    : m_settings(std::move(settings)), m_publication(m_settings.site), m_tell(std::move(tell)) {
    Start();
}

SitePublisher::~SitePublisher() {
    if (!m_process) {
        return;
    }
    m_process->EndWriting();
    const auto end = std::chrono::steady_clock::now() + kEndTime;
    const auto ignore = [](std::string_view /*line*/) {};
    for (auto left = kEndTime; left.count() > 0;
         left = std::chrono::ceil<milliseconds>(end - std::chrono::steady_clock::now())) {
        pollfd entry{m_process->Fd(), POLLIN, 0};
        if (poll(&entry, 1, static_cast<int>(left.count())) > 0 && !m_process->ReadLines(ignore)) {
            break;
        }
    }
}

bool SitePublisher::Start() {
    m_process = SourceProcess::Start(
        [this](Sender& sender) { RunPublisher(m_settings.broker, m_settings.site.name, sender); });
    if (!m_process) {
        m_tell(NoticeOf(std::string("nothing is published: no process could be started: ") +
                            std::strerror(errno),
                        ""));
    }
    return m_process.has_value();
}

void SitePublisher::Send(const Letter& letter) {
    if (m_process && !m_process->Write(EncodeLetter(letter), kWriteTime)) {
        m_process.reset();
        m_tell(NoticeOf("the process that publishes has ended; the next round starts another", ""));
    }
}

void SitePublisher::OnEvent(const DeviceEvent& event) {
    Send(m_publication.Event(event));
}

void SitePublisher::EndRound(const Report& report, std::span<const ListedDevice> list) {
    TellProblems();
    std::vector<Letter> news = m_publication.Update(report, list);
    if (!m_process && Start()) {
        news = m_publication.All();
    }
    for (const Letter& letter : news) {
        Send(letter);
    }
}

void SitePublisher::TellProblems() {
    if (!m_process) {
        return;
    }
    const bool alive = m_process->ReadLines([this](std::string_view line) {
        const std::optional<Message> message = DecodeMessage(line);
        const auto* notice = message ? std::get_if<NoticeMessage>(&*message) : nullptr;
        const auto* failure = message ? std::get_if<FailureMessage>(&*message) : nullptr;
        if (notice != nullptr) {
            m_tell(NoticeOf(notice->what, notice->remedy));
        } else if (failure != nullptr) {
            m_tell(NoticeOf(failure->what, failure->remedy));
        }
    });
    if (!alive) {
        m_process.reset();
        m_tell(NoticeOf("the process that publishes has ended; the next round starts another", ""));
    }
}

}  // namespace Lanscout
