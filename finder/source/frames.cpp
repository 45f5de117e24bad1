#include "finder/source/frames.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "finder/machine/macmakers.h"
#include "finder/machine/packetsocket.h"
#include "finder/machine/returnpath.h"
#include "finder/source/confine.h"
#include "finder/source/framejournal.h"

namespace Lanscout {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr int kMostFramesAtOnce =
    256;  // of one wire, before the others and the clock are looked at

struct Wire {
    std::string interface;
    PacketSocket socket;
};

// An interface's name once, also where it has several addresses or aliases.
std::vector<std::string> InterfacesOf(const std::vector<Target>& targets) {
    std::vector<std::string> names;
    for (const Target& target : targets) {
        std::string name = target.interface.substr(0, target.interface.find(':'));
        if (!name.empty() && std::find(names.begin(), names.end(), name) == names.end()) {
            names.push_back(std::move(name));
        }
    }
    return names;
}

std::vector<Wire> OpenWires(const std::vector<std::string>& interfaces, const Job& job,
                            Sender& sender) {
    std::vector<Wire> wires;
    for (const std::string& interface : interfaces) {
        try {
            wires.push_back({interface, PacketSocket(interface, kFrameFilter)});
        } catch (const std::exception& failure) {
            sender.Send(
                FailureMessage{TargetTowards(job.targets, {}, interface, ""), failure.what(), ""});
        }
    }
    return wires;
}

void ReadWire(Wire& wire, FrameJournal& journal, std::string& buffer) {
    for (int i = 0; i < kMostFramesAtOnce; ++i) {
        const PacketSocket::Got got = wire.socket.Receive(buffer);
        if (got.bytes.empty()) {
            return;
        }
        if (const auto frame = ReadFrame(got.bytes)) {
            if (got.way == PacketSocket::Way::Out) {
                journal.TakeSent(*frame, wire.interface, SteadyClock::now());
            } else {
                journal.TakeReceived(*frame, wire.interface, SteadyClock::now());
            }
        }
    }
}

}  // namespace

void RunFrames(const Job& job, Sender& sender) {
    const auto end = SteadyClock::now() + job.request.timeout;
    const std::vector<std::string> interfaces = InterfacesOf(job.targets);
    std::vector<Wire> wires = OpenWires(interfaces, job, sender);
    ReturnPath returnPath(interfaces);
    MacMakers makers;
    makers.Open();
    FrameJournal journal(
        job.targets, job.request.to,
        {ReadLocalAddresses(), [&](const std::string& mac) { return makers.MakerOf(mac); },
         [&](const std::string& address, const std::string& interface) {
             return returnPath.Drops(address, interface);
         }},
        [&](const Message& message) { sender.Send(message); });
    std::vector<pollfd> entries;
    for (const Wire& wire : wires) {
        entries.push_back({wire.socket.Fd(), POLLIN, 0});
    }
    ConfineSource({.time = job.request.timeout}, sender);
    std::string buffer;
    for (auto now = SteadyClock::now(); now < end; now = SteadyClock::now()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - now).count();
        poll(entries.data(), entries.size(), static_cast<int>(left));
        for (std::size_t i = 0; i < wires.size(); ++i) {
            if (entries[i].revents != 0) {
                ReadWire(wires[i], journal, buffer);
            }
        }
    }
    sender.Send(DoneMessage{});
}

}  // namespace Lanscout
