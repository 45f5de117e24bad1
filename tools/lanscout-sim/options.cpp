#include "tools/lanscout-sim/options.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <net/if.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cstdlib>

#include "tools/lanscout-sim/onvif/reply.h"

namespace lansim {
namespace {

constexpr int kWrongUse = 2;
constexpr std::size_t kDefaultCameras = 40;
constexpr std::size_t kMostDevices = 1000000;

constexpr const char* kDescription =
    R"(lanscout-sim: a network of simulated ONVIF cameras and UPnP devices

Cameras answer WS-Discovery Probes as real ones do; UPnP devices answer and advertise with
SSDP and serve their descriptions over HTTP. In namespace mode each has an IPv4 and a MAC
address of its own behind a tap device in a network namespace; in loopback mode, which needs no
privileges, each is an address of 127.0.0.0/8.)";

constexpr const char* kExamples = R"(Examples:
  lanscout-sim --cameras 40 --netns lab      40 cameras; search with: ip netns exec lab ...
  lanscout-sim --cameras 2000 --max-delay 20 -- lanscout --address 10.99.0.1
                                             runs the command inside and ends with its status
  lanscout-sim --mode loopback --cameras 10  no privileges; search from 127.77.0.1
  lanscout-sim --misbehave not-xml=10% --misbehave duplicate=5% --loss 5 --stats -
  lanscout-sim --cameras 20 --upnp 10 --netns lab
                                             30 devices, five of them both kinds in one
  lanscout-sim --scenario office.json --capture office.pcap --seconds 30

LANSCOUT_SIM_ADDRESS in the command's environment is the address to search from.
)";

std::string MisbehaviourList() {
    std::string text;
    for (const auto& entry : MisbehaviourNames()) {
        text += fmt::format("  {:<28}{}\n", entry.name, entry.meaning);
    }
    return text;
}

std::string Footer() {
    return "Misbehaviours (--misbehave KIND=SHARE):\n" + MisbehaviourList() + "\n" + kExamples;
}

std::string CheckShare(const std::string& text) {
    return ParseMisbehaviourShare(text).error;
}

std::string CheckNetwork(const std::string& text) {
    return ParseSubnet(text) ? ""
                             : fmt::format(
                                   "\"{}\" is no ADDRESS/BITS as in 10.99.0.1/16 (8 to 30 "
                                   "bits)",
                                   text);
}

std::string CheckDeviceName(const std::string& text) {
    return text.empty() || text.size() >= IFNAMSIZ || text.find_first_of("/ %") != text.npos
               ? fmt::format("\"{}\" is no device name of 1 to 15 characters", text)
               : "";
}

std::string CheckNamespaceName(const std::string& text) {
    return text.empty() || text == "." || text == ".." || text.find('/') != text.npos
               ? fmt::format("\"{}\" cannot name a network namespace", text)
               : "";
}

std::string CheckDescriptor(const std::string& text) {
    int fd = -1;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, fd);
    return error != std::errc{} || rest != end || fcntl(fd, F_GETFD) < 0
               ? fmt::format("\"{}\" is no open file descriptor", text)
               : "";
}

// The parser itself takes -1 for a very large number.
template <typename T>
bool IsWhole(const std::string& text, T largest) {
    T number = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    return error == std::errc{} && rest == end && number <= largest;
}

std::string CheckCount(const std::string& text) {
    return IsWhole(text, kMostDevices)
               ? ""
               : fmt::format("\"{}\" is no number of 0 to {}", text, kMostDevices);
}

std::string CheckSeed(const std::string& text) {
    return IsWhole(text, UINT64_MAX) ? "" : fmt::format("\"{}\" is no whole number", text);
}

class Usage : public CLI::Formatter {
public:
    std::string make_usage(const CLI::App*, std::string) const override {
        return "Usage: lanscout-sim [OPTION]... [-- COMMAND ARG...]\n\n";
    }
};

// What the parser writes before it becomes Options.
struct Raw {
    std::string mode = "auto";
    std::string ipv6;
    std::string user;
    std::vector<std::string> shares;
    std::string network;
    double loss = 0;
    std::uint32_t maxDelay = 500;
    double seconds = 0;
};

void Declare(CLI::App& app, Options& options, Raw& raw) {
    app.add_option("--mode", raw.mode,
                   "auto, namespace or loopback; auto is namespace where that is available")
        ->check(CLI::IsMember({"auto", "namespace", "loopback"}).description(""))
        ->capture_default_str()
        ->type_name("MODE");
    app.add_option("--cameras", options.cameras,
                   "number of generated cameras (40, or none with --scenario)")
        ->check(CheckCount)
        ->type_name("N");
    app.add_option("--upnp", options.upnpDevices,
                   "number of generated UPnP root devices; every other one is a camera too")
        ->check(CheckCount)
        ->type_name("N");
    app.add_option("--foreign", options.foreignCameras,
                   "so many of the generated cameras stand in another subnet, 192.168.77.0/24")
        ->check(CheckCount)
        ->type_name("N");
    app.add_option("--ipv6", raw.ipv6,
                   "generated cameras hear and answer on IPv6 too (also), or on IPv6 alone (only)")
        ->check(CLI::IsMember({"also", "only"}).description(""))
        ->type_name("also|only");
    app.add_option("--seed", options.seed, "the same seed makes the same run")
        ->check(CheckSeed)
        ->capture_default_str()
        ->type_name("S");
    app.add_option("--scenario", options.scenarioFile,
                   "named cameras and UPnP devices from a JSON file")
        ->type_name("FILE");
    app.add_option("--misbehave", raw.shares,
                   "a share of the generated devices misbehaves, as in not-xml=10%; repeatable")
        ->check(CheckShare)
        ->allow_extra_args(false)
        ->type_name("KIND=SHARE");
    app.add_option("--loss", raw.loss, "per cent of Probes and of replies lost")
        ->check(CLI::Range(0.0, 100.0).description(""))
        ->type_name("PERCENT");
    app.add_option("--probe-loss", options.probeLossPercent, "per cent of Probes lost")
        ->check(CLI::Range(0.0, 100.0).description(""))
        ->type_name("PERCENT");
    app.add_option("--reply-loss", options.replyLossPercent, "per cent of replies lost")
        ->check(CLI::Range(0.0, 100.0).description(""))
        ->type_name("PERCENT");
    app.add_option("--max-delay,--burst", raw.maxDelay,
                   "milliseconds within which a Probe is answered")
        ->check(CLI::Range(0, 60000).description(""))
        ->capture_default_str()
        ->type_name("MS");
    app.add_option("--shapes", options.shapes,
                   "shapes of the generated cameras' replies, as in 0,2; all of them otherwise")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(CLI::Range(0U, ShapeCount() - 1).description(""))
        ->type_name("N,...");
    app.add_flag_callback(
        "--list-misbehaviours",
        [] {
            fmt::print("{}", MisbehaviourList());
            throw CLI::Success();
        },
        "print the kinds of misbehaviour with their meanings, and end");
    app.add_flag("--lenient", options.isLenient,
                 "answer Probes and searches that a strict device does not");
    app.add_option("--netns", options.netns, "name of the namespace, as for ip netns")
        ->check(CheckNamespaceName)
        ->type_name("NAME");
    app.add_option("--network", raw.network,
                   "the searcher's address and the network (10.99.0.1/16; loopback mode: "
                   "127.77.0.1/16)")
        ->check(CheckNetwork)
        ->type_name("ADDRESS/BITS");
    app.add_option("--tap", options.tap, "name of the searcher's device in the namespace")
        ->check(CheckDeviceName)
        ->capture_default_str()
        ->type_name("NAME");
    app.add_option("--bridge", options.bridge,
                   "put the device into this bridge instead of a namespace of its own")
        ->check(CheckDeviceName)
        ->excludes("--netns")
        ->type_name("NAME");
    app.add_option("--user", raw.user,
                   "who runs the command; without it whoever ran sudo, else who runs this")
        ->type_name("NAME");
    app.add_option("--ready-fd", options.readyFd, "write the ready line to this descriptor")
        ->check(CheckDescriptor)
        ->type_name("N");
    app.add_option("--capture", options.captureFile, "write all that passed to a pcap file")
        ->type_name("FILE");
    app.add_option("--stats", options.statsFile, "write counts as JSON at the end; - is stdout")
        ->type_name("FILE");
    app.add_option("--devices", options.devicesFile,
                   "write the list of devices as JSON before the ready line; - is stdout")
        ->type_name("FILE");
    app.add_option("--control", options.controlFile,
                   "steer the run through this Unix socket, with HTTP and JSON")
        ->type_name("FILE");
    app.add_option("--seconds", raw.seconds, "end after so many seconds")
        ->check(CLI::Range(0.001, 1e6).description(""))
        ->type_name("N");
}

// Whoever names the namespace or its device means that mode, and would be misled by another.
void RequireNamespace(const CLI::App& app, Options& options) {
    for (const char* option : {"--netns", "--tap", "--bridge"}) {
        if (app.count(option) == 0) {
            continue;
        }
        if (options.mode == Mode::Loopback) {
            throw CLI::ValidationError(option, "loopback mode has no namespace; leave it out");
        }
        options.mode = Mode::Namespace;
    }
}

// Who ran sudo did so for the network's sake, and not the command's.
std::optional<User> UserFor(const std::string& asked) {
    const char* sudo = geteuid() == 0 ? getenv("SUDO_UID") : nullptr;
    if (asked.empty() && sudo == nullptr) {
        return std::nullopt;
    }
    const std::string wanted = asked.empty() ? sudo : asked;
    auto user = FindUser(wanted);
    if (!user && !asked.empty()) {
        throw CLI::ValidationError("--user", fmt::format("there is no user \"{}\"", asked));
    }
    return user;
}

// Throws what the parser throws for a wrong value.
void Complete(const CLI::App& app, Options& options, const Raw& raw) {
    options.mode = raw.mode == "namespace"  ? Mode::Namespace
                   : raw.mode == "loopback" ? Mode::Loopback
                                            : Mode::Automatic;
    RequireNamespace(app, options);
    options.user = UserFor(raw.user);
    options.ipv6 = raw.ipv6 == "also"   ? Ipv6Use::Also
                   : raw.ipv6 == "only" ? Ipv6Use::Only
                                        : Ipv6Use::None;
    for (const auto& share : raw.shares) {
        options.shares.push_back(*ParseMisbehaviourShare(share).value);
    }
    if (!raw.network.empty()) {
        options.network = ParseSubnet(raw.network);
    }
    if (app.count("--probe-loss") == 0) {
        options.probeLossPercent = raw.loss;
    }
    if (app.count("--reply-loss") == 0) {
        options.replyLossPercent = raw.loss;
    }
    options.maxDelay = std::chrono::milliseconds(raw.maxDelay);
    if (app.count("--seconds") > 0) {
        options.duration = std::chrono::milliseconds(static_cast<int>(raw.seconds * 1000));
    }
    if (app.count("--cameras") == 0 && options.scenarioFile.empty()) {
        options.cameras = kDefaultCameras;
    }
}

}  // namespace

CommandLine ParseCommandLine(int argc, const char* const* argv) {
    // Split here, so that the command may have options and a "--" of its own.
    const auto* end = argv + argc;
    const auto* dashes = std::find(argv, end, std::string_view("--"));

    Options options;
    Raw raw;
    CLI::App app(kDescription, "lanscout-sim");
    app.set_version_flag("-V,--version", "lanscout-sim " LANSCOUT_VERSION);
    app.formatter(std::make_shared<Usage>());
    app.footer(Footer());
    Declare(app, options, raw);
    try {
        app.parse(static_cast<int>(dashes - argv), argv);
        Complete(app, options, raw);
    } catch (const CLI::ParseError& error) {
        const int status = app.exit(error);
        return {std::nullopt, status == 0 ? 0 : kWrongUse};
    }
    if (dashes != end) {
        options.command.assign(dashes + 1, end);
    }
    if (dashes != end && options.command.empty()) {
        fmt::print(stderr, "lanscout-sim: \"--\" must be followed by the command to run\n");
        return {std::nullopt, kWrongUse};
    }
    return {options, 0};
}

}  // namespace lansim
