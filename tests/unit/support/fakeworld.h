// The world around the command, made up: a terminal, signals, time, files, and searches that were
// thought out before.
#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tools/lanscout/command.h"

namespace Lanscout {

class FakeTerminal : public Terminal {
public:
    bool outputIsTerminal = false;
    bool errorIsTerminal = false;
    TerminalSize size{80, 24};
    int outputError = 0;  // what every write of a result fails with
    std::string output;
    std::string words;

    bool IsTerminal(Stream stream) const override {
        return stream == Stream::Output ? outputIsTerminal : errorIsTerminal;
    }
    TerminalSize SizeOf(Stream /*stream*/) const override { return size; }
    int Write(Stream stream, std::string_view text) override {
        if (stream == Stream::Output && outputError != 0) {
            return outputError;
        }
        (stream == Stream::Output ? output : words) += text;
        return 0;
    }
};

class FakeSignals : public Signals {
public:
    using Clock = std::chrono::steady_clock;

    Clock::time_point now{std::chrono::hours(1000)};
    bool interrupted = false;
    bool resumed = false;
    bool hungUp = false;
    std::function<void()> onWait;

    int Fd() const override { return -1; }
    void Take() override {}
    bool Interrupted() const override { return interrupted; }
    bool TakeResumed() override { return std::exchange(resumed, false); }
    bool TakeHangup() override { return std::exchange(hungUp, false); }
    void WaitFor(std::chrono::milliseconds longest) override {
        now += longest;
        if (onWait) {
            onWait();
        }
    }
};

class FakeService : public Service {
public:
    std::vector<std::string> told;
    int alive = 0;

    void Ready() override { told.emplace_back("ready"); }
    void Reloading() override { told.emplace_back("reloading"); }
    void Alive() override { ++alive; }
    void Status(const std::string& text) override { told.push_back(text); }
};

struct FakeWorld {
    FakeWorld() = default;
    explicit FakeWorld(const std::vector<Report>& all) : rounds(all.begin(), all.end()) {}

    FakeTerminal terminal;
    FakeSignals signals;
    FakeService service;
    Environment environment;
    std::map<std::string, std::string> files;
    std::string unwritable;  // a path that cannot be written
    int writes = 0;
    std::deque<Report> rounds;  // what the searches find; after the last one the user has enough
    std::vector<Request> requests;
    std::vector<std::pair<int, std::string>> logLines;  // of each search
    std::chrono::seconds searchTakes{5};
    std::function<void()> onSearch;                 // when the devices have been drawn
    std::vector<std::vector<std::string>> rereads;  // arguments after each hangup

    int Run(std::vector<std::string> arguments) {
        std::variant<Options, int> parsed = Parse(arguments);
        if (const int* const status = std::get_if<int>(&parsed)) {
            return *status;
        }
        const Machine machine{terminal,
                              environment,
                              signals,
                              service,
                              Files(),
                              [this](const Request& request, const Wake& wake, Observer& observer) {
                                  return Search(request, wake, observer);
                              },
                              [this] { return signals.now; }};
        return RunCommand(std::get<Options>(parsed), machine, [this]() -> std::optional<Options> {
            const auto next = rereads.front();
            rereads.erase(rereads.begin());
            auto again = Parse(next);
            Options* const read = std::get_if<Options>(&again);
            return read == nullptr ? std::nullopt : std::optional(*read);
        });
    }

    std::variant<Options, int> Parse(const std::vector<std::string>& arguments) {
        std::vector<const char*> argv{"lanscout"};
        for (const std::string& argument : arguments) {
            argv.push_back(argument.c_str());
        }
        std::ostringstream out;
        std::ostringstream error;
        auto parsed = ParseArguments(static_cast<int>(argv.size()), argv.data(), out, error);
        terminal.output += out.str();
        terminal.words += error.str();
        return parsed;
    }

    Lanscout::Files Files() {
        return {[this](const std::string& path, std::size_t most) {
                    const auto file = files.find(path);
                    if (file == files.end() || file->second.size() > most) {
                        throw std::runtime_error("cannot read " + path);
                    }
                    return file->second;
                },
                [this](const std::string& path) { return files.contains(path); },
                [this](const std::string& path) { CheckWritable(path); },
                [this](const std::string& path, std::string_view text) {
                    CheckWritable(path);
                    ++writes;
                    files[path] = text;
                }};
    }

    void CheckWritable(const std::string& path) const {
        if (path == unwritable) {
            throw std::runtime_error("cannot write " + path + ": No space left on device");
        }
    }

    Report Search(const Request& request, const Wake& wake, Observer& observer) {
        requests.push_back(request);
        Report report;
        if (!rounds.empty()) {
            report = rounds.front();
            rounds.pop_front();
        }
        for (const Problem& problem : report.problems) {
            observer.OnProblem(problem);
        }
        for (const auto& [level, line] : logLines) {
            observer.OnLogLine(level, line);
        }
        std::size_t number = 0;
        for (const Device& device : report.devices) {
            DeviceEvent event;
            event.number = number++;
            event.device = device;
            observer.OnDevice(event);
        }
        observer.OnProgress(report.devices, {1, 5, 1});
        signals.now += searchTakes;
        if (rounds.empty()) {
            signals.interrupted = true;
        }
        if (onSearch) {
            onSearch();
        }
        wake.wantsToEnd();
        return report;
    }
};

inline Device DeviceAt(const std::string& ip, const std::string& hardware = "IPC") {
    Device device;
    device.ip = ip;
    device.protocols.onvif = true;
    device.port = 80;
    device.kind = Kind::Camera;
    device.hardware = hardware;
    device.firstSeen = "2026-11-21T08:00:00Z";
    device.seenVia = {{"eth0", "10.0.0.254"}};
    return device;
}

// What a search of eth0 came to.
inline Report RoundWith(std::vector<Device> devices, const std::string& finished = "T",
                        Outcome outcome = Outcome::Done) {
    Report report;
    report.devices = std::move(devices);
    report.started = finished;
    report.finished = finished;
    report.seconds = 5;
    report.searches = {{{"eth0", "10.0.0.254"}, SourceId::Probes, Work::Onvif, outcome}};
    return report;
}

}  // namespace Lanscout
