// What the frames of a search's interfaces say, each thing once.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "finder/machine/interfaces.h"
#include "finder/source/frame.h"
#include "finder/source/message.h"
#include "finder/source/replymemory.h"
#include "finder/source/request.h"

namespace Lanscout {

class FrameJournal {
public:
    using Time = std::chrono::steady_clock::time_point;
    using Tell = std::function<void(const Message&)>;

    // What the machine is asked.
    struct Machine {
        std::vector<LocalAddress> local;
        std::function<std::string(const std::string& mac)> makerOf;
        // Whether the kernel drops what comes from the address through the interface.
        std::function<bool(const std::string& address, const std::string& interface)> drops;
    };

    FrameJournal(std::vector<Target> targets, std::vector<AddressRange> asked, Machine machine,
                 Tell tell);

    // A frame that this machine sent.
    void TakeSent(const Frame& frame, const std::string& interface, Time now);

    // A frame that it got.
    void TakeReceived(const Frame& frame, const std::string& interface, Time now);

private:
    void TakeReply(const DatagramFrame& reply, const std::string& interface);
    void TellReply(const DatagramFrame& reply, const std::string& interface,
                   const std::string& uuid);
    void TakeRequest(const ArpRequestFrame& request, const std::string& interface, Time now);
    void TellDropped(const std::string& address, const std::string& interface);
    bool IsOurs(const std::string& address, const std::string& interface) const;
    bool IsAsked(const std::string& address) const;

    std::vector<Target> m_targets;
    std::vector<AddressRange> m_asked;
    Machine m_machine;
    Tell m_tell;
    ReplyMemory m_memory;
    std::map<std::string, Time> m_lastProbe;  // by interface
    std::set<std::tuple<std::string, std::string, std::string, std::string>> m_replies;
    std::set<std::string> m_strangers;  // MAC addresses
    std::set<std::string> m_dropping;   // interfaces
    std::set<std::string> m_foreign;    // addresses that somebody has or asks for
};

}  // namespace Lanscout
