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
#include "tools/lanscout-sim/controlapi.h"
#include "tools/lanscout-sim/hosts.h"
#include "tools/lanscout-sim/network/loopbacknetwork.h"
#include "tools/lanscout-sim/network/netdevice.h"
#include "tools/lanscout-sim/network/peerstack.h"
#include "tools/lanscout-sim/network/place.h"
#include "tools/lanscout-sim/network/tapnetwork.h"
#include "tools/lanscout-sim/onvif/deviceservice.h"
#include "tools/lanscout-sim/onvif/responder.h"
#include "tools/lanscout-sim/population.h"
#include "tools/lanscout-sim/report.h"
#include "tools/lanscout-sim/scenario.h"
#include "tools/lanscout-sim/stage.h"
#include "tools/lanscout-sim/timeline.h"
#include "tools/lanscout-sim/upnp/descriptionserver.h"
#include "tools/lanscout-sim/upnp/upnpresponder.h"

namespace lansim {
namespace {

using Clock = std::chrono::steady_clock;

constexpr Subnet kNamespaceNetwork{Ipv4{0x0A630001}, 16};  // 10.99.0.1/16
constexpr Subnet kLoopbackNetwork{Ipv4{0x7F4D0001}, 16};   // 127.77.0.1/16
constexpr std::uint32_t kNamespaceFirstHost = 10;
constexpr std::uint32_t kLoopbackFirstHost = 257;  // 127.77.1.1
// As timeout(1) has it.
constexpr int kTimeUp = 124;
constexpr int kCannotWrite = 3;
// How long a command may take to end when it is asked to.
constexpr std::chrono::seconds kGrace{3};

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
Ipv4 Moved(const Subnet& subnet, Ipv4 ip) {
    return {subnet.Network().value | (ip.value & ~subnet.Mask().value)};
}

template <typename Device>
void MoveInto(const Subnet& subnet, std::deque<Device>& devices) {
    for (auto& device : devices) {
        if (device.ip != Ipv4{}) {
            device.ip = Moved(subnet, device.ip);
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
        if (!options.devicesFile.empty()) {
            m_devicesFile.emplace(options.devicesFile);
        }
        if (!options.statsFile.empty()) {
            m_statsFile.emplace(options.statsFile);
        }
    }

    int Run() {
        MakeNetwork();
        MakeStage();
        const auto user = WhoRunsTheCommand();
        if (m_devicesFile) {
            WriteReport(Truth(m_population), *m_devicesFile);
        }
        m_upnp->SayAlive(Clock::now());
        SayReady();
        if (!m_options.command.empty()) {
            m_command =
                std::make_unique<Command>(m_options.command, ToText(m_subnet.address), user);
        }
        if (m_options.duration) {
            m_end = Clock::now() + *m_options.duration;
        }
        Loop();
        m_upnp->SayByebye(Clock::now());
        m_outbox.SendDue(Clock::now(), *m_network);
        return StatusAfter(WriteOutputs());
    }

private:
    // The command's own status is never hidden, and never made up.
    int StatusAfter(bool isAllWritten) const {
        const int status = m_command ? m_command->ExitStatus().value_or(0) : 0;
        if (m_command && m_isTimeUp) {
            return kTimeUp;
        }
        return status == 0 && !isAllWritten ? kCannotWrite : status;
    }

    bool WriteOutputs() {
        try {
            if (m_statsFile) {
                WriteReport(Stats(), *m_statsFile);
            }
            if (m_capture) {
                m_capture->Finish();
            }
            return true;
        } catch (const SetupError& error) {
            fmt::print(stderr, "lanscout-sim: {}\n", error.what());
            return false;
        }
    }

    void MakeNetwork() {
        PlaceRequest request;
        request.mayBeTap = m_options.mode != Mode::Loopback;
        request.mayBeLoopback = m_options.mode != Mode::Namespace;
        request.netns = m_options.netns;
        request.tap = m_options.tap;
        request.bridge = m_options.bridge;
        request.hasCommand = !m_options.command.empty();
        request.asRoot = m_options.user && m_options.user->uid == 0;
        m_place = FindPlace(request);
        if (m_place.tap.IsOpen()) {
            return MakeTap();
        }
        if (!m_place.whyNoTap.empty()) {
            fmt::print(stderr,
                       "lanscout-sim: using loopback mode; namespace mode is unavailable: {}\n",
                       m_place.whyNoTap);
        }
        MakeLoopback();
    }

    void MakeTap() {
        Populate(m_options.bridge.empty() ? kNamespaceNetwork : NetworkOfBridge(),
                 kNamespaceFirstHost);
        const auto hosts = HostsOf(m_population);
        TapDevice device{std::move(m_place.tap), m_options.tap, m_options.bridge.empty()};
        auto network =
            std::make_unique<TapNetwork>(std::move(device), m_subnet, hosts, m_capture.get());
        std::set<Ipv4> servers;
        std::set<std::uint16_t> ports;
        // The stack has all addresses from the start; who is not there yet is met by no frame.
        for (const auto& host : HostsOf(m_population, Attendance::Ever)) {
            ports.insert(host.tcpPorts.All().begin(), host.tcpPorts.All().end());
            if (!host.tcpPorts.All().empty()) {
                servers.insert(host.ip.V4());
            }
        }
        if (!servers.empty()) {
            network->Attach(MakePeerStack(servers, [&] {
                for (const auto port : ports) {
                    m_server->Listen({Ipv4{}, port});
                }
            }));
        }
        m_tapCounts = &network->Counts();
        m_network = std::move(network);
    }

    Subnet NetworkOfBridge() const {
        const auto found = NetDevice(m_options.bridge).Address();
        if (!found && !m_options.network) {
            throw SetupError(fmt::format(
                "the bridge {} has no IPv4 address; say with --network who searches, as in "
                "--network 172.18.0.1/16",
                m_options.bridge));
        }
        return found.value_or(kNamespaceNetwork);
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
        for (auto& event : m_scenario.timeline) {
            if (event.deed == Deed::Move) {
                event.value = ToText(Moved(subnet, *ParseIpv4(event.value)));
            }
        }
        MoveInto(subnet, m_scenario.cameras);
        MoveInto(subnet, m_scenario.upnpDevices);
        Populate(kLoopbackNetwork, kLoopbackFirstHost);
        const auto hosts = HostsOf(m_population);
        m_network = std::make_unique<LoopbackNetwork>(hosts, m_capture.get());
        ListenOnLoopback(hosts);
    }

    // A camera can be found without its device service, whose port may need rights or be taken.
    void ListenOnLoopback(const std::vector<SimulatedHost>& hosts) {
        for (const auto& host : hosts) {
            for (const auto port : host.tcpPorts.All()) {
                try {
                    m_server->ListenToo({host.ip, port});
                } catch (const SetupError& error) {
                    const auto isIt = [&](const UpnpDevice& device) {
                        return IpAddress(device.ip) == host.ip && device.port == port;
                    };
                    if (std::ranges::any_of(m_population.upnpDevices, isIt)) {
                        throw;
                    }
                    if (m_explained.insert("service").second) {
                        fmt::print(stderr,
                                   "lanscout-sim: a camera is without its device service: {}\n",
                                   error.what());
                    }
                }
            }
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
        request.shapes = m_options.shapes;
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
        m_server->SetOtherServices([this](const HttpRequest& asked) { return AskCamera(asked); });
    }

    // A user namespace has its maker in it and nobody else, under one name.
    std::optional<User> WhoRunsTheCommand() const {
        if (!m_place.isUserNamespace || !m_options.user) {
            return m_options.user;
        }
        if (m_options.user->uid != 0 && m_options.user->uid != geteuid()) {
            throw SetupError(fmt::format("it takes root to run the command as {}; leave --user out",
                                         m_options.user->name));
        }
        return std::nullopt;
    }

    std::optional<HttpAnswer> AskCamera(const HttpRequest& request) const {
        const auto isIt = [&](const Camera& camera) {
            return camera.isPresent && camera.hasIpv4 && IpAddress(camera.ip) == request.local.ip &&
                   camera.port == request.local.port;
        };
        const auto camera = std::ranges::find_if(m_population.cameras, isIt);
        if (camera == m_population.cameras.end()) {
            return std::nullopt;
        }
        auto answer = AnswerService(*camera, request.method, request.path, request.body,
                                    std::chrono::system_clock::now());
        return HttpAnswer{answer.status, std::move(answer.contentType), std::move(answer.body)};
    }

    bool IsTap() const { return m_tapCounts != nullptr; }

    std::string WhereToSearch() const {
        const std::string device = IsTap() ? m_options.tap : "lo";
        if (!m_options.bridge.empty()) {
            return fmt::format("{} in bridge {}", device, m_options.bridge);
        }
        if (!m_options.netns.empty()) {
            return fmt::format("{} in netns {}", device, m_options.netns);
        }
        if (!m_place.inside) {
            return device;
        }
        const bool isInside = !m_options.command.empty();
        return fmt::format("{} in a namespace without a name{}", device,
                           isInside ? "" : "; enter it with: " + EnterCommand());
    }

    std::string EnterCommand() const {
        return fmt::format("nsenter {}-n -t {}",
                           m_place.isUserNamespace ? "--preserve-credentials -U " : "", getpid());
    }

    std::string ReadyLine() const {
        const auto upnp = m_population.upnpDevices.size();
        return fmt::format(
            "ready: {} cameras{}, mode {}, search from {} ({})\n", m_population.cameras.size(),
            upnp == 0 ? "" : fmt::format(", {} UPnP devices", upnp),
            IsTap() ? "namespace" : "loopback", ToText(m_subnet.address), WhereToSearch());
    }

    // Standard output is the command's, or a report's, where there is one.
    void SayReady() const {
        const std::string line = ReadyLine();
        const bool isTaken = !m_options.command.empty() || m_options.devicesFile == "-" ||
                             m_options.statsFile == "-";
        if (m_options.readyFd) {
            const Descriptor fd(*m_options.readyFd);
            if (write(fd.Get(), line.data(), line.size()) < 0) {
                FailWithErrno("cannot write the ready line");
            }
        } else {
            fmt::print(isTaken ? stderr : stdout, "{}", line);
            std::fflush(stdout);
        }
    }

    void MakeStage() {
        m_stage = std::make_unique<Stage>(m_population, m_subnet, *m_cameras, *m_upnp,
                                          [this] { NoticeHosts(); });
        m_timeline = std::make_unique<Timeline>(m_scenario.timeline, Clock::now());
        if (!m_options.controlFile.empty()) {
            m_control = std::make_unique<ControlServer>(
                m_options.controlFile, [this](const ControlRequest& request) {
                    return AnswerControl(request, *m_stage, m_journal, Clock::now());
                });
        }
    }

    // A host that leaves says so before it goes.
    void NoticeHosts() {
        m_outbox.SendDue(Clock::now(), *m_network);
        const auto hosts = HostsOf(m_population);
        m_network->SetHosts(hosts);
        m_server->NoticeChanges();
        if (IsTap()) {
            return;  // the stack behind it has the addresses and ports of the start
        }
        ListenOnLoopback(hosts);
    }

    void Loop() {
        std::array<pollfd, 4> waits = {{{m_network->Descriptor(), POLLIN, 0},
                                        {m_server->Descriptor(), POLLIN, 0},
                                        {m_signals.Get(), POLLIN, 0},
                                        {m_control ? m_control->Descriptor() : -1, POLLIN, 0}}};
        while (!IsOver()) {
            const timespec timeout = UntilNextDue();
            ppoll(waits.data(), waits.size(), &timeout, nullptr);
            m_network->Receive([this](const Datagram& datagram) { Take(datagram); });
            m_timeline->Run(*m_stage, Clock::now());
            if (m_control) {
                m_control->Run();
            }
            m_upnp->Run(Clock::now());
            m_outbox.SendDue(Clock::now(), *m_network);
            m_server->Run(Clock::now());
            TakeSignals();
        }
    }

    void Take(const Datagram& datagram) {
        if (datagram.to.port == kDiscoveryPort) {
            const auto outcome = m_cameras->OnDatagram(datagram, Clock::now());
            m_journal.Add(datagram, outcome, Clock::now());
            // A copy under the same MessageID is no mistake: SOAP-over-UDP sends them.
            if (outcome.refused != ProbeError::Repeated) {
                Explain(datagram, outcome.refused, "a Probe");
            }
        } else if (datagram.to.port == kSsdpPort) {
            const auto outcome = m_upnp->OnDatagram(datagram, Clock::now());
            m_journal.Add(datagram, outcome, Clock::now());
            if (outcome.refused != SsdpError::OtherMessage) {
                Explain(datagram, outcome.refused, "a search");
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
        Sooner(due, m_killAt);
        Sooner(due, m_outbox.NextDue());
        Sooner(due, m_upnp->NextDue());
        Sooner(due, m_timeline->NextDue());
        if (m_control) {
            Sooner(due, m_control->NextDue(Clock::now()));
        }
        Sooner(due, m_server->NextDue(Clock::now()));
        const auto wait = std::max(nanoseconds(0), nanoseconds(due - Clock::now())).count();
        return {wait / kNanosecondsPerSecond, wait % kNanosecondsPerSecond};
    }

    void TakeSignals() {
        signalfd_siginfo info{};
        while (read(m_signals.Get(), &info, sizeof info) == sizeof info) {
            if (info.ssi_signo != SIGCHLD) {
                End(static_cast<int>(info.ssi_signo));
            }
        }
        if (m_end && Clock::now() >= *m_end) {
            m_end.reset();
            m_isTimeUp = true;
            End(SIGTERM);
        }
        if (m_killAt && m_command && Clock::now() >= *m_killAt) {
            m_command->Signal(SIGKILL);
        }
    }

    // The command is asked to end, and the devices answer it until it has.
    void End(int signal) {
        m_isEnding = true;
        if (m_command && !m_command->ExitStatus()) {
            m_command->Signal(signal);
            if (!m_killAt) {
                m_killAt = Clock::now() + kGrace;
            }
        }
    }

    bool IsOver() { return m_command ? m_command->ExitStatus().has_value() : m_isEnding; }

    nlohmann::ordered_json Stats() const {
        return {{"mode", IsTap() ? "namespace" : "loopback"},
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
    // It must outlive what was made in it.
    Place m_place;
    std::unique_ptr<DescriptionServer> m_server;
    std::unique_ptr<Network> m_network;
    const TapCounts* m_tapCounts = nullptr;
    std::unique_ptr<Command> m_command;
    std::optional<TimePoint> m_end;
    std::optional<TimePoint> m_killAt;
    bool m_isTimeUp = false;
    bool m_isEnding = false;
    std::optional<OutputFile> m_devicesFile;
    std::optional<OutputFile> m_statsFile;
    std::set<std::string> m_explained;
    Journal m_journal{Clock::now()};
    std::unique_ptr<Stage> m_stage;
    std::unique_ptr<Timeline> m_timeline;
    std::unique_ptr<ControlServer> m_control;
};

}  // namespace

int RunSimulation(const Options& options) {
    return Simulation(options).Run();
}

}  // namespace lansim
