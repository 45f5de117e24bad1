// Runs camera searches as a server does and prints what came of it, one JSON object a line, for the
// LAN tests: every log line, every change of the count, the records, and at the end what threads
// and descriptors are left.
#include <sys/wait.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "control/standalonehost.h"
#include "tests/lan/events.h"
#include "utils/wsdiscoverybase.h"

namespace {

using nlohmann::json;

struct Options {
    std::string address;
    int seconds = 5;
    int searches = 1;
    int objects = 1;
    int pollers = 0;
    int level = LOG_LEVEL_INFO;
    bool startsNoProgram = false;
};

void PrintLogLine(const StandaloneHost::LogRecord& record, void* /*cookie*/) {
    Print({{"event", "log"}, {"text", record.line}});
}

// Of this program alone: what getrusage tells includes the process that started it.
long PeakKilobytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) {
            return std::stol(line.substr(line.find(':') + 1));
        }
    }
    return -1;
}

// Also one that has ended and that nobody has waited for.
bool HasChild() {
    siginfo_t info{};
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

void PrintLeft(const char* when) {
    namespace fs = std::filesystem;
    const auto count = [](const char* folder) {
        return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
    };
    Print({{"event", "left"},
           {"when", when},
           {"peakKilobytes", PeakKilobytes()},
           {"threads", count("/proc/self/task")},
           {"descriptors", count("/proc/self/fd")},
           {"children", HasChild()}});
}

// A server's threads that look at a search all the while, and what they see must always hold.
class Pollers {
public:
    Pollers(WSDiscoveryBase& search, int count) : m_search(search) {
        for (int i = 0; i < count; ++i) {
            m_threads.emplace_back([this] { Poll(); });
        }
    }

    void Finish() {
        m_stop = true;
        for (std::thread& thread : m_threads) {
            thread.join();
        }
        if (!m_threads.empty()) {
            Print({{"event", "polled"}, {"rounds", m_rounds.load()}, {"faults", m_faults}});
        }
    }

private:
    void Poll() {
        std::vector<ONVIF_CAM_SEARCH_INFO> before;
        while (!m_stop) {
            std::vector<ONVIF_CAM_SEARCH_INFO> now(3);
            Expect(m_search.CamAllGet(now) == 0, "CamAllGet failed");
            Expect(IsPrefix(before, now), "the list did not just grow");
            const int count = m_search.CamCountGet();
            Expect(count >= static_cast<int>(now.size()), "the count shrank");
            CheckRecord(now);
            (void)m_search.IsRunning();
            before = std::move(now);
            ++m_rounds;
        }
    }

    void CheckRecord(const std::vector<ONVIF_CAM_SEARCH_INFO>& list) {
        CAM_SEARCH_INFO info{"kept", "kept", "kept", "kept", -7};
        Expect(m_search.CamGet(1'000'000, info) == -1 && info.strIp == "kept" && info.nPort == -7,
               "CamGet beyond the list");
        if (list.empty()) {
            return;
        }
        const ONVIF_CAM_SEARCH_INFO& last = list.back();
        const auto index = static_cast<unsigned int>(list.size() - 1);
        Expect(m_search.CamGet(index, info) == 0, "CamGet within the list");
        Expect(info.strIp == last.strIp && info.strMac == last.strMac && info.nPort == last.nPort &&
                   info.strHardware == last.strHardware && info.strProtocol == "ONVIF",
               "CamGet and CamAllGet differ");
        Expect(last.strMac == "N/A" || last.strMac.size() == 17, "a record that is half built");
    }

    static bool IsPrefix(const std::vector<ONVIF_CAM_SEARCH_INFO>& shorter,
                         const std::vector<ONVIF_CAM_SEARCH_INFO>& longer) {
        if (shorter.size() > longer.size()) {
            return false;
        }
        for (std::size_t i = 0; i < shorter.size(); ++i) {
            if (shorter[i].strIp != longer[i].strIp || shorter[i].strMac != longer[i].strMac) {
                return false;
            }
        }
        return true;
    }

    void Expect(bool holds, const char* fault) {
        if (!holds) {
            const std::lock_guard guard(m_lock);
            m_faults.emplace_back(fault);
        }
    }

    WSDiscoveryBase& m_search;
    std::vector<std::thread> m_threads;
    std::atomic<bool> m_stop{false};
    std::atomic<long> m_rounds{0};
    std::mutex m_lock;
    std::vector<std::string> m_faults;
};

void WatchUntilDone(WSDiscoveryBase& search, int object) {
    int count = search.CamCountGet();
    bool running = true;
    while (running) {
        running = search.IsRunning();
        const int now = search.CamCountGet();
        if (now != count) {
            Print({{"event", "count"}, {"object", object}, {"count", now}});
            count = now;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(running ? 10 : 0));
    }
    Print({{"event", "ended"}, {"object", object}});
}

void PrintCameras(WSDiscoveryBase& search, int object, int run) {
    std::vector<ONVIF_CAM_SEARCH_INFO> cameras;
    search.CamAllGet(cameras);
    for (const ONVIF_CAM_SEARCH_INFO& camera : cameras) {
        Print({{"event", "camera"},
               {"object", object},
               {"search", run},
               {"protocol", camera.strProtocol},
               {"ip", camera.strIp},
               {"port", camera.nPort},
               {"hardware", camera.strHardware},
               {"mac", camera.strMac}});
    }
}

void SearchOnce(std::vector<std::unique_ptr<WSDiscoveryBase>>& searches, int run,
                const Options& options) {
    for (std::size_t i = 0; i < searches.size(); ++i) {
        const int result = searches[i]->StartSearch();
        Print({{"event", "started"}, {"object", i}, {"search", run}, {"result", result}});
    }
    Pollers pollers(*searches.front(), options.pollers);
    for (std::size_t i = searches.size(); i-- > 0;) {
        WatchUntilDone(*searches[i], static_cast<int>(i));
        searches[i]->StopSearch();
        Print({{"event", "stopped"}, {"object", i}, {"search", run}});
    }
    pollers.Finish();
    for (std::size_t i = 0; i < searches.size(); ++i) {
        PrintCameras(*searches[i], static_cast<int>(i), run);
    }
}

void Run(const Options& options) {
    StandaloneHost::SetLogSink(PrintLogLine, nullptr);
    StandaloneHost::AttachLogConfig();
    StandaloneHost::SetCategoryLevel(LOG_CATEG_DISCOVERY, options.level);
    if (options.startsNoProgram) {
        StandaloneHost::SetProcessRunner([](const char*, const char* const*) { return -1; });
    }
    PrintLeft("before");
    std::vector<std::unique_ptr<WSDiscoveryBase>> searches;
    for (int i = 0; i < options.objects; ++i) {
        searches.push_back(std::make_unique<WSDiscoveryBase>(options.address, options.seconds));
    }
    for (int run = 0; run < options.searches; ++run) {
        SearchOnce(searches, run, options);
    }
    searches.clear();
    PrintLeft("after");
    StandaloneHost::SetLogSink(nullptr, nullptr);
}

}  // namespace

int main(int argc, char** argv) try {
    Options options;
    CLI::App app("Runs camera searches and prints JSON lines about them");
    app.add_option("address", options.address)->required();
    app.add_option("--seconds", options.seconds);
    app.add_option("--searches", options.searches, "searches on each object, one after the other");
    app.add_option("--objects", options.objects, "objects on the one address, at once");
    app.add_option("--pollers", options.pollers, "threads that read results all the while");
    app.add_option("--level", options.level, "most detailed log level");
    app.add_option("--starts-no-program", options.startsNoProgram, "true: arping is refused");
    CLI11_PARSE(app, argc, argv);
    Run(options);
    return 0;
} catch (const std::exception& error) {
    fprintf(stderr, "searchdriver: %s\n", error.what());
    return 2;
}
