#include "finder/source/neighbours.h"

#include <net/if.h>
#include <poll.h>

#include <array>
#include <chrono>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "finder/machine/interfaces.h"
#include "finder/machine/neighbourtable.h"
#include "finder/text/addresstext.h"

namespace Lanscout {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr std::size_t kMostNeighbours = 65536;

class Teller {
public:
    Teller(const Job& job, Sender& sender)
        : m_job(job), m_sender(sender), m_local(ReadLocalAddresses()) {
        for (const Target& target : job.targets) {
            m_indexes.insert(if_nametoindex(target.interface.c_str()));
        }
    }

    void Tell(const Neighbour& neighbour) {
        const bool wanted = m_job.targets.empty() || m_indexes.contains(neighbour.interface);
        if (wanted && IsNews(neighbour)) {
            SendSighting(neighbour);
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

    void SendSighting(const Neighbour& neighbour) {
        std::array<char, IF_NAMESIZE> buffer{};
        if (if_indextoname(neighbour.interface, buffer.data()) == nullptr) {
            return;  // the interface is gone
        }
        const std::string interface = buffer.data();
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
    std::set<unsigned int> m_indexes;
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
    do {
        table.Read([&](const Neighbour& neighbour) { teller.Tell(neighbour); });
    } while (WaitUntil(end, table.Fd()));
    sender.Send(DoneMessage{});
}

}  // namespace Lanscout
