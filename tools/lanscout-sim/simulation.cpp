#include "tools/lanscout-sim/simulation.h"

#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>

#include "tools/lanscout-sim/command.h"
#include "tools/lanscout-sim/hosts.h"
#include "tools/lanscout-sim/network/loopbacknetwork.h"
#include "tools/lanscout-sim/network/netns.h"
#include "tools/lanscout-sim/network/peerstack.h"
#include "tools/lanscout-sim/network/tapnetwork.h"
#include "tools/lanscout-sim/onvif/responder.h"
#include "tools/lanscout-sim/population.h"
#include "tools/lanscout-sim/report.h"
#include "tools/lanscout-sim/scenario.h"
#include "tools/lanscout-sim/upnp/descriptionserver.h"
#include "tools/lanscout-sim/upnp/upnpresponder.h"

namespace lansim {
namespace {

using Clock = std::chrono::steady_clock;

constexpr Subnet kNamespaceNetwork{Ipv4{0x0A630001}, 16};  // 10.99.0.1/16
constexpr Subnet kLoopbackNetwork{Ipv4{0x7F4D0001}, 16};   // 127.77.0.1/16
constexpr std::uint32_t kNamespaceFirstHost = 10;
constexpr std::uint32_t kLoopbackFirstHost = 257;  // 127.77.1.1

// Signals arrive as something to read, so that the loop ends where it can clean up.
Descriptor MakeSignalDescriptor() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) {
        sigaddset(&signals, number);
    }
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN);
    return Descriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

// A scenario written for namespace mode serves on loopback too: each device keeps its number in
// the network.
template <typename Device>
void MoveInto(const Subnet& subnet, std::vector<Device>& devices) {
    for (auto& device : devices) {
        if (device.ip != Ipv4{}) {
            device.ip.value = subnet.Network().value | (device.ip.value & ~subnet.Mask().value);
        }
    }
}

void Sooner(TimePoint& due, const std::optional<TimePoint>& other) {
    if (other) {
        due = std::min(due, *other);
    }
}

class Simulation {
public:
    explicit Simulation(const Options& options)
        : m_options(options),
          m_signals(MakeSignalDescriptor()),
          m_outbox(options.seed + 1, options.replyLossPercent / 100) {
        if (!options.scenarioFile.empty()) {
            m_scenario = ReadScenario(options.scenarioFile);
        }
        if (!options.captureFile.empty()) {
            m_capture = std::make_unique<Capture>(options.captureFile);
        }
    }

    int Run() {
        MakeNetwork();
        if (!m_options.devicesFile.empty()) {
            WriteReport({{"devices", DevicesReport(m_population)}}, m_options.devicesFile);
        }
        m_upnp->SayAlive(Clock::now());
        m_outbox.SendDue(Clock::now(), *m_network);
        fmt::print(m_options.command.empty() ? stdout : stderr, "{}\n", ReadyLine());
        std::fflush(stdout);
        if (!m_options.command.empty()) {
            m_command = std::make_unique<Command>(m_options.command, ToText(m_subnet.address));
        }
        if (m_options.duration) {
            m_end = Clock::now() + *m_options.duration;
        }
        Loop();
        const int status = m_command ? m_command->ExitStatus().value_or(0) : 0;
        m_command.reset();
        m_upnp->SayByebye(Clock::now());
        m_outbox.SendDue(Clock::now(), *m_network);
        if (!m_options.statsFile.empty()) {
            WriteReport(Stats(), m_options.statsFile);
        }
        return status;
    }

private:
    void MakeNetwork() {
        if (m_options.mode == Mode::Loopback) {
            return MakeLoopback();
        }
        Populate(kNamespaceNetwork, kNamespaceFirstHost);
        try {
            MakeNamespace();
        } catch (const SetupError& error) {
            m_network.reset();
            m_namespace.reset();
            if (m_options.mode == Mode::Namespace) {
                throw;
            }
            fmt::print(stderr,
                       "lanscout-sim: using loopback mode; namespace mode is unavailable: {}\n",
                       error.what());
            MakeLoopback();
        }
    }

    void MakeNamespace() {
        m_namespace = std::make_unique<NetworkNamespace>(m_options.netns);
        auto network = std::make_unique<TapNetwork>(m_options.tap, m_subnet, HostsOf(m_population),
                                                    m_capture.get());
        if (!m_population.upnpDevices.empty()) {
            network->Attach(MakePeerStack(UpnpAddresses(), [this] { ServeEverywhere(); }));
        }
        m_tapCounts = &network->Counts();
        m_network = std::move(network);
    }

    void MakeLoopback() {
        const Subnet subnet = m_options.network.value_or(kLoopbackNetwork);
        if (subnet.address.value >> 24 != 127) {
            throw SetupError(
                fmt::format("{} is not in 127.0.0.0/8, where loopback mode lives; "
                            "leave --network out or give one as 127.77.0.1/16",
                            ToText(subnet)));
        }
        const bool needsWire = std::ranges::any_of(m_scenario.cameras, [](const Camera& camera) {
            return camera.isForeign || camera.ipv6 || !camera.hasIpv4;
        });
        if (needsWire || m_options.foreignCameras > 0 || m_options.ipv6 != Ipv6Use::None) {
            throw SetupError(
                "loopback mode has neither foreign subnets nor link-local IPv6; use --mode "
                "namespace");
        }
        MoveInto(subnet, m_scenario.cameras);
        MoveInto(subnet, m_scenario.upnpDevices);
        Populate(kLoopbackNetwork, kLoopbackFirstHost);
        m_network = std::make_unique<LoopbackNetwork>(HostsOf(m_population), m_capture.get());
        for (const auto& device : m_population.upnpDevices) {
            m_server->Listen({device.ip, device.port});
        }
    }

    void Populate(const Subnet& defaultNetwork, std::uint32_t firstHost) {
        m_subnet = m_options.network.value_or(defaultNetwork);
        PopulationRequest request;
        request.network = m_subnet;
        request.firstHost = firstHost;
        request.generated = m_options.cameras;
        request.generatedUpnp = m_options.upnpDevices;
        request.generatedForeign = m_options.foreignCameras;
        request.ipv6 = m_options.ipv6;
        request.seed = m_options.seed;
        request.named = m_scenario.cameras;
        request.namedUpnp = m_scenario.upnpDevices;
        request.shares = m_options.shares;
        m_population = MakePopulation(request);
        const double loss = m_options.probeLossPercent / 100;
        m_cameras = std::make_unique<Responder>(
            m_population.cameras,
            ResponderOptions{m_options.seed, m_options.maxDelay, loss,
                             m_options.isLenient ? Strictness::Lenient : Strictness::Strict},
            m_outbox);
        m_upnp = std::make_unique<UpnpResponder>(
            m_population.upnpDevices,
            UpnpResponderOptions{m_options.seed, m_options.maxDelay, loss, m_options.isLenient},
            m_outbox);
        m_server = std::make_unique<DescriptionServer>(m_population.upnpDevices);
    }

    std::set<Ipv4> UpnpAddresses() const {
        std::set<Ipv4> addresses;
        for (const auto& device : m_population.upnpDevices) {
            addresses.insert(device.ip);
        }
        return addresses;
    }

    void ServeEverywhere() {
        std::set<std::uint16_t> ports;
        for (const auto& device : m_population.upnpDevices) {
            ports.insert(device.port);
        }
        for (const auto port : ports) {
            m_server->Listen({Ipv4{}, port});
        }
    }

    std::string ReadyLine() const {
        const std::string where =
            !m_namespace ? "lo"
            : m_options.netns.empty()
                ? fmt::format("{} in a namespace without a name", m_options.tap)
                : fmt::format("{} in netns {}", m_options.tap, m_options.netns);
        const auto upnp = m_population.upnpDevices.size();
        return fmt::format("ready: {} cameras{}, mode {}, search from {} ({})",
                           m_population.cameras.size(),
                           upnp == 0 ? "" : fmt::format(", {} UPnP devices", upnp),
                           m_namespace ? "namespace" : "loopback", ToText(m_subnet.address), where);
    }

    void Loop() {
        std::array<pollfd, 3> waits = {{{m_network->Descriptor(), POLLIN, 0},
                                        {m_server->Descriptor(), POLLIN, 0},
                                        {m_signals.Get(), POLLIN, 0}}};
        while (!IsOver()) {
            const timespec timeout = UntilNextDue();
            ppoll(waits.data(), waits.size(), &timeout, nullptr);
            m_network->Receive([this](const Datagram& datagram) { Take(datagram); });
            m_upnp->Run(Clock::now());
            m_outbox.SendDue(Clock::now(), *m_network);
            if (!m_population.upnpDevices.empty()) {
                m_server->Run(Clock::now());
            }
            TakeSignals();
        }
    }

    void Take(const Datagram& datagram) {
        if (datagram.to.port == kDiscoveryPort) {
            Explain(datagram, m_cameras->OnDatagram(datagram, Clock::now()).refused, "a Probe");
        } else if (datagram.to.port == kSsdpPort) {
            const auto refused = m_upnp->OnDatagram(datagram, Clock::now()).refused;
            if (refused != SsdpError::OtherMessage) {
                Explain(datagram, refused, "a search");
            }
        }
    }

    // The first refusal for each reason, so that a searcher's author sees why nobody answers.
    template <typename Reason>
    void Explain(const Datagram& datagram, const std::optional<Reason>& refused, const char* what) {
        if (refused && m_explained.insert(fmt::format("{} {}", what, NameOf(*refused))).second) {
            fmt::print(stderr, "lanscout-sim: nobody answers {} from {} port {}: {}\n", what,
                       ToText(datagram.from.ip), datagram.from.port, NameOf(*refused));
        }
    }

    timespec UntilNextDue() const {
        using std::chrono::nanoseconds;
        constexpr nanoseconds kLongest = std::chrono::seconds(60);
        constexpr long kNanosecondsPerSecond = 1000000000;
        TimePoint due = Clock::now() + kLongest;
        Sooner(due, m_end);
        Sooner(due, m_outbox.NextDue());
        Sooner(due, m_upnp->NextDue());
        Sooner(due, m_server->NextDue(Clock::now()));
        const auto wait = std::max(nanoseconds(0), nanoseconds(due - Clock::now())).count();
        return {wait / kNanosecondsPerSecond, wait % kNanosecondsPerSecond};
    }

    void TakeSignals() {
        signalfd_siginfo info{};
        while (read(m_signals.Get(), &info, sizeof info) == sizeof info) {
            if (info.ssi_signo == SIGCHLD) {
                continue;
            }
            m_isStopped = true;
            if (m_command) {
                m_command->Signal(static_cast<int>(info.ssi_signo));
            }
        }
    }

    bool IsOver() {
        return m_isStopped || (m_end && Clock::now() >= *m_end) ||
               (m_command && m_command->ExitStatus());
    }

    nlohmann::ordered_json Stats() const {
        return {{"mode", m_namespace ? "namespace" : "loopback"},
                {"address", ToText(m_subnet.address)},
                {"seed", m_options.seed},
                {"counts", CountsReport({m_cameras->Counts(), m_upnp->Counts(), m_outbox.Counts(),
                                         m_tapCounts})},
                {"devices", DevicesReport(m_population)}};
    }

    const Options& m_options;
    Descriptor m_signals;
    Scenario m_scenario;
    std::unique_ptr<Capture> m_capture;
    Subnet m_subnet;
    Population m_population;
    Outbox m_outbox;
    std::unique_ptr<Responder> m_cameras;
    std::unique_ptr<UpnpResponder> m_upnp;
    // The namespace must outlive what was made in it.
    std::unique_ptr<NetworkNamespace> m_namespace;
    std::unique_ptr<DescriptionServer> m_server;
    std::unique_ptr<Network> m_network;
    const TapCounts* m_tapCounts = nullptr;
    std::unique_ptr<Command> m_command;
    std::optional<TimePoint> m_end;
    bool m_isStopped = false;
    std::set<std::string> m_explained;
};

}  // namespace

int RunSimulation(const Options& options) {
    return Simulation(options).Run();
}

}  // namespace lansim
