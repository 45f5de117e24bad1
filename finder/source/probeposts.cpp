#include "finder/source/probeposts.h"

#include <net/if.h>

#include <algorithm>
#include <set>
#include <string>
#include <utility>

#include "finder/source/explain.h"

namespace Lanscout {
namespace {

// WS-Discovery (April 2005), 2.4.
constexpr std::uint32_t kGroup = 0xEFFFFFFA;  // 239.255.255.250
constexpr char kIpv6Group[] = "ff02::c";

// Room for the replies of a large network that come at once; of all sockets together, as a flood
// can fill it.
constexpr int kAllBuffersBytes = 64 * 1024 * 1024;
constexpr int kMostBufferBytes = 16 * 1024 * 1024;

using Tell = std::function<void(const FailureMessage&)>;

class Opener {
public:
    Opener(const Job& job, const std::vector<LocalAddress>& local, const Tell& tell)
        : m_job(job),
          m_local(local),
          m_tell(tell),
          m_port(job.request.sourcePort),
          m_bufferBytes(std::min(kAllBuffersBytes / (2 * static_cast<int>(job.targets.size()) + 1),
                                 kMostBufferBytes)) {}

    std::vector<ProbePost> Open() {
        if (m_job.request.ipv4) {
            for (const Target& target : m_job.targets) {
                OpenIpv4(target);
            }
        }
        if (m_job.request.ipv6) {
            OpenIpv6();
        }
        if (m_job.request.ipv4 && !m_job.request.to.empty()) {
            OpenForSingle();
        }
        return std::move(m_posts);
    }

private:
    void OpenIpv4(const Target& target) {
        if (target.address.empty()) {
            return;
        }
        OpenedSocket opened = OpenSocketAt(target.address, m_port, m_bufferBytes);
        if (!opened.socket) {
            return m_tell(ExplainBind(target, opened.error, m_port));
        }
        m_posts.push_back({target, std::move(opened.socket), Ipv4Endpoint(kGroup, kDiscoveryPort),
                           SubnetsOf(m_local, target.interface), Reach::Foreign});
    }

    // The interfaces of the targets; where nobody has named any, those without an IPv4 address too.
    void OpenIpv6() {
        std::set<std::string> done;
        for (const Target& target : m_job.targets) {
            if (done.insert(target.interface).second && !OpenIpv6(target) && !m_job.request.ipv4) {
                m_tell({target, "the interface has no link-local IPv6 address", ""});
            }
        }
        const Request& request = m_job.request;
        if (!request.interfaces.empty() || !request.addresses.empty() || !request.to.empty()) {
            return;
        }
        for (const LocalAddress& one : m_local) {
            const bool usable = one.up && one.multicast && !one.loopback && one.address.empty();
            if (usable && done.insert(one.interface).second) {
                OpenIpv6({one.interface, ""});
            }
        }
    }

    bool OpenIpv6(const Target& target) {
        const std::string address = LinkLocalOf(target.interface);
        const unsigned int index = if_nametoindex(target.interface.c_str());
        if (address.empty() || index == 0) {
            return false;
        }
        OpenedSocket opened = OpenIpv6SocketAt(address, index, m_port, m_bufferBytes);
        if (opened.socket) {
            m_posts.push_back({target,
                               std::move(opened.socket),
                               Ipv6Endpoint(kIpv6Group, index, kDiscoveryPort),
                               {},
                               Reach::Local});
        }
        return true;
    }

    std::string LinkLocalOf(const std::string& interface) const {
        for (const LocalAddress& one : m_local) {
            for (const Ipv6Address& six : one.ipv6) {
                if (one.interface == interface && six.linkLocal) {
                    return six.address;
                }
            }
        }
        return {};
    }

    void OpenForSingle() {
        // The targets' sockets may hold that port already.
        const int port = m_job.targets.empty() ? m_port : 0;
        OpenedSocket opened = OpenSocketAnywhere(port, m_bufferBytes);
        if (!opened.socket) {
            return m_tell(ExplainBind({}, opened.error, port));
        }
        m_posts.push_back(
            {{}, std::move(opened.socket), {}, SubnetsOf(m_local, ""), Reach::Routed});
    }

    const Job& m_job;
    const std::vector<LocalAddress>& m_local;
    const Tell& m_tell;
    int m_port;
    int m_bufferBytes;
    std::vector<ProbePost> m_posts;
};

}  // namespace

std::vector<ProbePost> OpenProbePosts(const Job& job, const std::vector<LocalAddress>& local,
                                      const Tell& tell) {
    return Opener(job, local, tell).Open();
}

std::vector<Subnet> SubnetsOf(const std::vector<LocalAddress>& local,
                              const std::string& interface) {
    std::vector<Subnet> subnets;
    for (const LocalAddress& one : local) {
        const auto subnet = SubnetFrom(one.network);
        if (subnet && (interface.empty() || one.interface == interface)) {
            subnets.push_back(*subnet);
        }
    }
    return subnets;
}

}  // namespace Lanscout
