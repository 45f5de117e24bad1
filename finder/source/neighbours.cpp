#include "finder/source/neighbours.h"

#include <net/if.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <string>
#include <utility>

#include "finder/machine/interfaces.h"
#include "finder/machine/neighbourtable.h"
#include "finder/source/confine.h"
#include "finder/text/addresstext.h"

namespace Lanscout {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr std::size_t kMostNeighbours = 65536;

class Teller {
public:
    Teller(const Job& job, Sender& sender)
        : m_job(job), m_sender(sender), m_local(ReadLocalAddresses()) {
        for (const LocalAddress& one : m_local) {
            const std::string name = one.interface.substr(0, one.interface.find(':'));
            const auto isThere = [&](const Target& target) {
                return IsSameInterface(target.interface, name);
            };
            if (job.targets.empty() ||
                std::any_of(job.targets.begin(), job.targets.end(), isThere)) {
                m_names[if_nametoindex(name.c_str())] = name;
            }
        }
    }

    void Tell(const Neighbour& neighbour) {
        const auto name = m_names.find(neighbour.interface);
        if (name != m_names.end() && IsNews(neighbour)) {
            SendSighting(neighbour, name->second);
        }
    }

private:
    bool IsNews(const Neighbour& neighbour) {
        const auto key = std::pair(neighbour.interface, neighbour.address);
        const auto known = m_known.find(key);
        if (known == m_known.end()) {
            return m_known.size() < kMostNeighbours && m_known.emplace(key, neighbour.mac).second;
        }
        return std::exchange(known->second, neighbour.mac) != neighbour.mac;
    }

    void SendSighting(const Neighbour& neighbour, const std::string& interface) {
        Sighting sighting;
        sighting.source = SourceId::Neighbours;
        sighting.via = TargetTowards(m_job.targets, m_local, interface, neighbour.address);
        sighting.device.mac = neighbour.mac;
        if (IsIpv4Text(neighbour.address)) {
            sighting.device.ip = neighbour.address;
        } else {
            sighting.device.ipv6 = {WithZone(neighbour.address, interface)};
        }
        m_sender.Send(SightingMessage{std::move(sighting)});
    }

    const Job& m_job;
    Sender& m_sender;
    std::vector<LocalAddress> m_local;
    std::map<unsigned int, std::string> m_names;  // of the interfaces, by their indexes
    std::map<std::pair<unsigned int, std::string>, std::string> m_known;  // the MAC address
};

// Whether there is something to read before the end.
bool WaitUntil(SteadyClock::time_point end, int fd) {
    while (SteadyClock::now() < end) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(end - SteadyClock::now()).count();
        pollfd entry{fd, POLLIN, 0};
        if (poll(&entry, 1, static_cast<int>(left)) > 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

void RunNeighbours(const Job& job, Sender& sender) {
    const auto end = SteadyClock::now() + job.request.timeout;
    Teller teller(job, sender);
    NeighbourTable table;
    ConfineSource({.time = job.request.timeout}, sender);
    do {
        table.Read([&](const Neighbour& neighbour) { teller.Tell(neighbour); });
    } while (WaitUntil(end, table.Fd()));
    sender.Send(DoneMessage{});
}

}  // namespace Lanscout
