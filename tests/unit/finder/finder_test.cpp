// A whole search, its sources played by the test: they run in child processes as ever, and say what
// the test has them say.
#include "finder/finder.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstring>
#include <functional>
#include <new>

using namespace Lanscout;

namespace {

const Target kHome{"lo", "127.0.0.1"};
const Target kOther{"lo", "127.0.0.2"};

std::function<void(const Job&, Sender&)> probes;
std::function<void(const Job&, Sender&)> camerasearch;
std::function<void(const Job&, Sender&)> upnp;
std::function<void(const Job&, Sender&)> neighbours;

void RunProbes(const Job& job, Sender& sender) {
    probes(job, sender);
}
void RunCamera(const Job& job, Sender& sender) {
    camerasearch(job, sender);
}
void RunUpnp(const Job& job, Sender& sender) {
    upnp(job, sender);
}
void RunNeighbours(const Job& job, Sender& sender) {
    neighbours(job, sender);
}

const std::array kPlayed{
    Source{SourceId::Probes, "probes", Work::Onvif, false,
           [](const Request& request) { return request.onvif && probes != nullptr; }, &RunProbes},
    Source{SourceId::CameraSearch, "camerasearch", Work::Onvif, false,
           [](const Request& request) { return request.onvif && camerasearch != nullptr; },
           &RunCamera},
    Source{SourceId::UpnpSearch, "upnpsearch", Work::Upnp, true,
           [](const Request& request) { return request.upnp && upnp != nullptr; }, &RunUpnp},
    Source{SourceId::Neighbours, "neighbours", Work::Macs, false,
           [](const Request& /*request*/) { return neighbours != nullptr; }, &RunNeighbours},
};

Sighting At(const std::string& ip, const std::string& hardware = "") {
    Sighting sighting{SourceId::Probes, kHome, {}};
    sighting.device.ip = ip;
    sighting.device.protocols.onvif = true;
    sighting.device.hardware = hardware;
    return sighting;
}

void Done(const Job& /*job*/, Sender& sender) {
    sender.Send(DoneMessage{});
}

// Until it is ended from outside.
void Linger(const Job& /*job*/, Sender& /*sender*/) {
    while (true) {
        pause();
    }
}

struct Recorder : Observer {
    std::vector<DeviceEvent> events;
    std::vector<Problem> problems;
    std::vector<std::string> lines;
    std::size_t mostRunning = 0;
    std::function<void()> onProgress;

    void OnDevice(const DeviceEvent& event) override { events.push_back(event); }
    void OnProblem(const Problem& problem) override { problems.push_back(problem); }
    void OnLogLine(int /*level*/, std::string_view text) override { lines.emplace_back(text); }
    void OnProgress(std::span<const Device> /*devices*/, const Progress& progress) override {
        mostRunning = std::max(mostRunning, progress.running);
        if (onProgress) {
            onProgress();
        }
    }
};

class FinderSearch : public testing::Test {
protected:
    FinderSearch() {
        probes = camerasearch = upnp = neighbours = nullptr;
        m_request.addresses = {kHome.address};
        m_request.timeout = std::chrono::seconds(0);
    }

    Report Run() { return RunSearch(m_request, m_wake, m_seen); }

    Request m_request;
    Wake m_wake;
    Recorder m_seen;
};

Problem::Weight WeightOf(const std::vector<Problem>& problems, std::string_view what) {
    const auto found = std::find_if(problems.begin(), problems.end(), [&](const Problem& one) {
        return one.what.find(what) != std::string::npos;
    });
    EXPECT_NE(found, problems.end()) << what;
    return found == problems.end() ? Problem::Weight::Error : found->weight;
}

}  // namespace

namespace Lanscout {

std::span<const Source> Sources() {
    return kPlayed;
}

const char* SourceName(SourceId id) {
    return std::find_if(kPlayed.begin(), kPlayed.end(),
                        [&](const Source& source) { return source.id == id; })
        ->name;
}

}  // namespace Lanscout

TEST_F(FinderSearch, WhatTheSourcesSeeBecomesOneList) {
    probes = [](const Job& job, Sender& sender) {
        sender.Send(SightingMessage{At("127.0.0.9", "IPC")});
        Done(job, sender);
    };
    upnp = [](const Job& job, Sender& sender) {
        Sighting sighting{SourceId::UpnpSearch, job.targets.at(0), {}};
        sighting.device.ip = "127.0.0.9";
        sighting.device.name = "Gate";
        sender.Send(SightingMessage{sighting});
        Done(job, sender);
    };
    const Report report = Run();
    ASSERT_EQ(report.devices.size(), 1U);
    EXPECT_EQ(report.devices[0].hardware, "IPC");
    EXPECT_EQ(report.devices[0].name, "Gate");
    EXPECT_TRUE(report.IsComplete());
    ASSERT_FALSE(m_seen.events.empty());
    EXPECT_EQ(m_seen.events[0].what, DeviceEvent::What::Found);
}

TEST_F(FinderSearch, SourceCannotSpeakForAnother) {
    neighbours = [](const Job& job, Sender& sender) {
        Sighting sighting = At("127.0.0.9");
        sighting.source = SourceId::Probes;
        sender.Send(SightingMessage{sighting});
        Done(job, sender);
    };
    probes = Done;
    EXPECT_TRUE(Run().devices.empty());
}

TEST_F(FinderSearch, FailureThatAnotherSourceMakesUpForIsANotice) {
    probes = Done;
    camerasearch = [](const Job& job, Sender& sender) {
        sender.Send(FailureMessage{job.targets.at(0), "UDP port 3702 is taken by wsdd", "Stop it"});
        Done(job, sender);
    };
    const Report report = Run();
    EXPECT_TRUE(report.IsComplete());
    EXPECT_EQ(WeightOf(report.problems, "taken by wsdd; searching beside it"),
              Problem::Weight::Notice);
}

TEST_F(FinderSearch, FailureOfEverySourceIsAnError) {
    const auto fail = [](const Job& job, Sender& sender) {
        sender.Send(FailureMessage{job.targets.at(0), "no way", ""});
        Done(job, sender);
    };
    probes = fail;
    camerasearch = fail;
    const Report report = Run();
    EXPECT_FALSE(report.IsComplete());
    EXPECT_FALSE(report.HasSearched());
    EXPECT_EQ(WeightOf(report.problems, "no way"), Problem::Weight::Notice);
    EXPECT_TRUE(std::any_of(
        report.problems.begin(), report.problems.end(),
        [](const Problem& problem) { return problem.weight == Problem::Weight::Error; }));
}

TEST_F(FinderSearch, FailureOfOneAddressLeavesTheOther) {
    m_request.addresses = {kHome.address, kOther.address};
    probes = [](const Job& job, Sender& sender) {
        sender.Send(FailureMessage{kOther, "no way", ""});
        Done(job, sender);
    };
    const Report report = Run();
    EXPECT_TRUE(report.HasSearched());
    EXPECT_FALSE(report.IsComplete());
    ASSERT_EQ(report.searches.size(), 2U);
    EXPECT_EQ(report.searches[0].outcome, Outcome::Done);
    EXPECT_EQ(report.searches[1].outcome, Outcome::Failed);
}

TEST_F(FinderSearch, FailureToLearnMacsIsANoticeAndNoFailedSearch) {
    probes = Done;
    neighbours = [](const Job& job, Sender& sender) {
        sender.Send(FailureMessage{{}, "no netlink", ""});
        Done(job, sender);
    };
    const Report report = Run();
    EXPECT_TRUE(report.IsComplete());
    EXPECT_EQ(WeightOf(report.problems, "no netlink"), Problem::Weight::Notice);
    EXPECT_EQ(report.searches.size(), 1U);
}

TEST_F(FinderSearch, SourceThatDiesKeepsWhatItFound) {
    probes = [](const Job& /*job*/, Sender& sender) {
        sender.Send(SightingMessage{At("127.0.0.9")});
        raise(SIGKILL);
    };
    const Report report = Run();
    EXPECT_EQ(report.devices.size(), 1U);
    EXPECT_FALSE(report.IsComplete());
    EXPECT_EQ(WeightOf(report.problems, "ended by signal 9"), Problem::Weight::Error);
}

TEST_F(FinderSearch, SourceThatEndsWithoutAWordHasFailed) {
    probes = [](const Job& /*job*/, Sender& /*sender*/) {};
    EXPECT_EQ(WeightOf(Run().problems, "ended unexpectedly"), Problem::Weight::Error);
}

TEST_F(FinderSearch, WhatASourceThrowsIsItsFailure) {
    probes = [](const Job& /*job*/, Sender& /*sender*/) {
        throw std::runtime_error("out of luck");
    };
    const Report report = Run();
    EXPECT_EQ(WeightOf(report.problems, "out of luck"), Problem::Weight::Error);
    EXPECT_EQ(report.problems.size(), 1U);
}

TEST_F(FinderSearch, SourceThatHasHadItsTimeIsEndedAndDone) {
    probes = Linger;
    const Report report = Run();
    EXPECT_TRUE(report.IsComplete());
    EXPECT_LT(report.seconds, 5);
}

TEST_F(FinderSearch, SearchBeyondTheMostTimeIsCutShort) {
    m_request.timeout = std::chrono::seconds(3600);
    m_request.maxTime = std::chrono::seconds(0);
    probes = Linger;
    const Report report = Run();
    ASSERT_EQ(report.searches.size(), 1U);
    EXPECT_EQ(report.searches[0].outcome, Outcome::CutShort);
    EXPECT_EQ(WeightOf(report.problems, "still ran after 0 seconds"), Problem::Weight::Notice);
}

TEST_F(FinderSearch, EarlyEndKeepsWhatStandsInThePipes) {
    // Between the processes: the child writes when the parent has read what was there before.
    enum { kWait, kWrite, kWritten };
    void* const page = mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(page, MAP_FAILED);
    auto* const turn = new (page) std::atomic<int>(kWait);
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    m_request.timeout = std::chrono::seconds(3600);
    m_request.maxTime = std::chrono::seconds(7200);
    probes = [&](const Job& job, Sender& sender) {
        while (*turn != kWrite) {
            sched_yield();
        }
        for (int i = 1; i <= 20; ++i) {
            sender.Send(SightingMessage{At("127.0.1." + std::to_string(i))});
        }
        *turn = kWritten;
        Linger(job, sender);
    };
    m_wake = {ends[0], [&] {
                  *turn = kWrite;
                  while (*turn != kWritten) {
                      sched_yield();
                  }
                  return true;
              }};
    const Report report = Run();
    EXPECT_TRUE(report.WasInterrupted());
    EXPECT_FALSE(report.IsComplete());
    EXPECT_EQ(report.devices.size(), 20U);
    close(ends[0]);
    close(ends[1]);
    munmap(page, sizeof(std::atomic<int>));
}

TEST_F(FinderSearch, UpnpProcessesWaitForOneAnother) {
    m_request.addresses = {"127.0.0.1", "127.0.0.2", "127.0.0.3", "127.0.0.4", "127.0.0.5"};
    m_request.onvif = false;
    m_request.atOnce = 2;
    upnp = Done;
    const Report report = Run();
    EXPECT_EQ(report.searches.size(), 5U);
    EXPECT_TRUE(report.IsComplete());
    EXPECT_LE(m_seen.mostRunning, 2U);
}

TEST_F(FinderSearch, SharedAddressIsToldWithBothMacs) {
    probes = [](const Job& job, Sender& sender) {
        for (const char* last : {"1", "2"}) {
            Sighting sighting = At("127.0.0.9");
            sighting.device.uuid = std::string("urn:uuid:") + last;
            sighting.device.mac = std::string("00:1B:FF:01:02:0") + last;
            sender.Send(SightingMessage{sighting});
        }
        Done(job, sender);
    };
    const Report report = Run();
    EXPECT_EQ(report.devices.size(), 2U);
    EXPECT_EQ(WeightOf(report.problems,
                       "127.0.0.9 is the address of 2 devices: 00:1B:FF:01:02:01, "
                       "00:1B:FF:01:02:02"),
              Problem::Weight::Notice);
    EXPECT_TRUE(report.IsComplete());
}

TEST_F(FinderSearch, NothingIsFailedByWhatADeviceSays) {
    probes = [](const Job& job, Sender& sender) {
        sender.Send(SightingMessage{At("127.0.0.9", "Send probe message failed. [101]")});
        sender.Send(LogMessage{4, "Camera found: hardware: [Bind socket failed. [98]]"});
        Done(job, sender);
    };
    const Report report = Run();
    EXPECT_TRUE(report.IsComplete());
    EXPECT_TRUE(report.problems.empty());
    EXPECT_EQ(m_seen.lines.size(), 1U);
}

TEST_F(FinderSearch, UnknownAddressIsAProblemAndNoSearch) {
    m_request.addresses = {"192.0.2.1"};
    probes = Done;
    const Report report = Run();
    EXPECT_TRUE(report.searches.empty());
    EXPECT_FALSE(report.HasSearched());
    EXPECT_EQ(report.problems.size(), 1U);
}
