#include "tools/lanscout/options.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <map>
#include <ostream>
#include <stdexcept>

#include "finder/broker/topics.h"
#include "finder/device/fields.h"
#include "finder/machine/files.h"
#include "finder/source/addressrange.h"
#include "finder/text/safetext.h"
#include "tools/lanscout/output/outputs.h"
#include "tools/lanscout/task/exitstatus.h"

namespace Lanscout {
namespace {

constexpr int kLongestSeconds = 86400;
constexpr int kGraceSeconds = 60;
constexpr int kDefaultWatchSeconds = 30;
constexpr int kLastPort = 65535;
constexpr int kMostProbesASecond = 100000;
constexpr int kMostAtOnce = 1000;
constexpr int kMostForgetNumber = 100000;
constexpr int kSitesSeconds = 30;  // the time ends the reading of sites only where a broker is slow
constexpr std::size_t kLongestKeyFile = std::size_t{16} * 1024 * 1024;

constexpr char kFooter[] = R"(Examples:
  lanscout                               every interface, 5 seconds, a table
  lanscout --interface eth0 --timeout 15 one interface, more patience
  lanscout --to 10.20.0.0/24             ask single addresses, also behind a router
  lanscout --json > monday.json          keep a result ...
  lanscout --compare monday.json         ... and see what is missing, new or changed
  lanscout --html cameras.html           a page to look at and to pass on
  lanscout --csv --sort model            for a spreadsheet
  lanscout --watch 60                    what comes and goes
  lanscout --sites mqtts://broker        what other sites publish

Exit status: 0 found, 1 nothing found, 2 wrong use, 3 could not search,
4 differs from the --compare file.)";

// What CLI11 fills in until it is made into Options.
struct Flags {
    int timeoutSeconds = static_cast<int>(Request().timeout.count());
    int maxSeconds = 0;
    std::string only;
    bool ipv4 = false;
    bool ipv6 = false;
    std::vector<std::string> to;
    std::map<std::string, bool> formats;
    bool noProgress = false;
    std::string colour = "auto";
    std::vector<int> watch;
    std::string site;
    std::string mqtt;
    std::string sites;
    BrokerSettings broker;  // its files
    std::string credentials;
    bool homeAssistant = false;
    std::string forget = "30d";
};

void AddPlaceOptions(CLI::App& app, Options& options, Flags& flags) {
    app.add_option("-i,--interface", options.request.interfaces,
                   "Search the addresses of this interface; may be repeated")
        ->option_text("NAME ...")
        ->allow_extra_args(false);
    app.add_option("-a,--address", options.request.addresses,
                   "Search from this address of this machine; may be repeated")
        ->option_text("IP ...")
        ->check(CLI::ValidIPV4)
        ->allow_extra_args(false);
    app.add_option("--to", flags.to,
                   "Ask these addresses one by one, also behind routers: 10.20.0.0/24, "
                   "10.20.0.5-10.20.0.40 or @FILE with one a line; may be repeated")
        ->option_text("RANGE|@FILE ...")
        ->allow_extra_args(false);
    app.add_flag("--ipv4", flags.ipv4, "Search by IPv4 only");
    app.add_flag("--ipv6", flags.ipv6, "Search by IPv6 only");
}

void AddSearchOptions(CLI::App& app, Options& options, Flags& flags) {
    app.add_option("-t,--timeout", flags.timeoutSeconds, "How long to search")
        ->option_text(fmt::format("SECONDS={}", flags.timeoutSeconds))
        ->check(CLI::Range(1, kLongestSeconds));
    app.add_option("--max-time", flags.maxSeconds,
                   "End a search that still runs after this time (default: the timeout and 60)")
        ->option_text("SECONDS")
        ->check(CLI::Range(1, 2 * kLongestSeconds));
    app.add_option("--only", flags.only, "Search one way only")
        ->option_text("onvif|upnp")
        ->check(CLI::IsMember({"onvif", "upnp"}));
    app.add_option("--rate", options.request.rate,
                   "How many Probes a second go to the addresses of --to")
        ->option_text(fmt::format("N={}", options.request.rate))
        ->check(CLI::Range(1, kMostProbesASecond));
    app.add_option("--source-port", options.request.sourcePort,
                   "Send the Probes from this UDP port, for a firewall that lets it pass")
        ->option_text("PORT")
        ->check(CLI::Range(1, kLastPort));
    app.add_option("--at-once", options.request.atOnce, "UPnP searches at the same time, at most")
        ->option_text(fmt::format("N={}", options.request.atOnce))
        ->check(CLI::Range(1, kMostAtOnce));
}

void AddOutputOptions(CLI::App& app, OutputSettings& output, Flags& flags) {
    for (const OutputFormat& format : OutputFormats()) {
        app.add_flag(fmt::format("--{}", format.name), flags.formats[format.name], format.help);
    }
    app.add_option("--html", output.html, "Also write a page of the result to this file")
        ->option_text("FILE");
    app.add_option("--file-sd", output.fileSd,
                   "Also write the devices to this file, as targets for Prometheus")
        ->option_text("FILE");
    app.add_option("-s,--sort", output.sort,
                   fmt::format("Order the devices by this column: {}", fmt::join(CsvNames(), ", ")))
        ->option_text(fmt::format("COLUMN={}", output.sort))
        ->check(CLI::IsMember(CsvNames()));
    app.add_option("--color", flags.colour, "Colours in the table (NO_COLOR is respected)")
        ->option_text("auto|always|never")
        ->check(CLI::IsMember({"auto", "always", "never"}));
    app.add_flag("-q,--quiet", output.quiet, "Nothing but the result and errors");
    app.add_flag("-v,--verbose", output.verbose,
                 "Also the failures in the library's log; given twice, all of it");
    app.add_flag("--no-progress", flags.noProgress, "No progress bar, and no table until the end");
}

void AddTaskOptions(CLI::App& app, Options& options, Flags& flags) {
    app.add_option("-w,--watch", flags.watch,
                   "Search again and again, a search beginning every SECONDS (30), and report what "
                   "appears, goes away, returns, moves to another address or changes")
        ->option_text("[SECONDS]")
        ->expected(0, 1)
        ->check(CLI::Range(1, kLongestSeconds));
    app.add_option("--state", options.state,
                   "Keep the list of --watch in this file, so that a restart reports no news")
        ->option_text("FILE");
    app.add_option("-c,--compare", options.compare,
                   "Compare with an earlier --json result: missing, new, changed")
        ->option_text("FILE");
    app.set_config(
           "--config", "",
           "Also read options from this file, one per line as in timeout=5; --watch reads it "
           "again at SIGHUP")
        ->option_text("FILE");
    app.allow_config_extras(CLI::config_extras_mode::error);
}

void AddSiteOptions(CLI::App& app, Flags& flags) {
    app.add_option("--mqtt", flags.mqtt,
                   "Publish what --watch finds at this broker: mqtts://HOST or mqtt://HOST")
        ->option_text("URL");
    app.add_option("--site", flags.site, "The name of this site in what is published")
        ->option_text("NAME");
    app.add_option("--sites", flags.sites, "List what other sites publish at this broker")
        ->option_text("URL");
    app.add_option("--mqtt-cafile", flags.broker.caFile,
                   "Trust a broker whose certificate one in this file vouches for")
        ->option_text("FILE");
    app.add_option("--mqtt-cert", flags.broker.certFile, "This client's certificate")
        ->option_text("FILE");
    app.add_option("--mqtt-key", flags.broker.keyFile, "The key of that certificate")
        ->option_text("FILE");
    app.add_option("--mqtt-credentials", flags.credentials,
                   "A file that others may not read: the user name, a line, and the password")
        ->option_text("FILE");
    app.add_flag("--homeassistant", flags.homeAssistant,
                 "Publish what Home Assistant needs to show each device too");
    app.add_option("--forget", flags.forget,
                   "Forget what is gone for that long: a number with d, h, m or s")
        ->option_text("TIME=30d");
}

std::chrono::seconds TimeOf(const std::string& text) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const std::string_view unit(end, static_cast<std::size_t>(text.data() + text.size() - end));
    const std::map<std::string_view, int> units{
        {"d", kLongestSeconds}, {"h", 3600}, {"m", 60}, {"s", 1}};
    const auto found = units.find(unit);
    if (error != std::errc() || number <= 0 || number > kMostForgetNumber || found == units.end()) {
        throw CLI::ValidationError("--forget", "takes a number with d, h, m or s, such as 30d");
    }
    return std::chrono::seconds(std::int64_t{number} * found->second);
}

BrokerSettings BrokerOf(const char* option, const std::string& url, const Flags& flags) {
    try {
        BrokerSettings broker = ParseBrokerUrl(url);
        if (!broker.tls && (flags.broker != BrokerSettings{})) {
            throw std::runtime_error("certificates are for mqtts://, and this is mqtt://");
        }
        if (flags.broker.certFile.empty() != flags.broker.keyFile.empty()) {
            throw std::runtime_error("--mqtt-cert and --mqtt-key belong together");
        }
        broker.caFile = flags.broker.caFile;
        broker.certFile = flags.broker.certFile;
        broker.keyFile = flags.broker.keyFile;
        for (const std::string& file : {broker.caFile, broker.certFile, broker.keyFile}) {
            if (!file.empty()) {
                ReadWholeFile(file, kLongestKeyFile);
            }
        }
        if (!flags.credentials.empty()) {
            ReadCredentials(flags.credentials, broker);
        }
        return broker;
    } catch (const std::runtime_error& wrong) {
        throw CLI::ValidationError(option, wrong.what());
    }
}

void CheckSiteOptions(const CLI::App& app, const Options& options, const Flags& flags) {
    if (!flags.mqtt.empty() && !options.watch) {
        throw CLI::ValidationError("--mqtt", "publishes what --watch finds, which is missing");
    }
    if (flags.mqtt.empty() != flags.site.empty()) {
        throw CLI::ValidationError("--mqtt and --site belong together");
    }
    if (!flags.site.empty() && !IsSiteName(flags.site)) {
        throw CLI::ValidationError(
            "--site", "takes a name of up to 64 characters, without white space, / + # and quotes");
    }
    if (!flags.mqtt.empty() && !flags.sites.empty()) {
        throw CLI::ValidationError("--sites", "cannot be combined with --mqtt");
    }
    if (flags.homeAssistant && flags.mqtt.empty()) {
        throw CLI::ValidationError("--homeassistant", "needs --mqtt");
    }
    for (const char* name : {"--mqtt-cafile", "--mqtt-cert", "--mqtt-key", "--mqtt-credentials"}) {
        if (app.count(name) > 0 && flags.mqtt.empty() && flags.sites.empty()) {
            throw CLI::ValidationError(name, "needs --mqtt or --sites");
        }
    }
    if (app.count("--forget") > 0 && !options.watch) {
        throw CLI::ValidationError("--forget", "is for --watch");
    }
}

void CompleteSites(const CLI::App& app, const Flags& flags, Options& options) {
    CheckSiteOptions(app, options, flags);
    options.forget = TimeOf(flags.forget);
    if (!flags.sites.empty()) {
        options.request.sites = BrokerOf("--sites", flags.sites, flags);
        if (app.count("--timeout") == 0) {
            options.request.timeout = std::chrono::seconds(kSitesSeconds);
            options.request.maxTime = std::chrono::seconds(kSitesSeconds + kGraceSeconds);
        }
    }
    if (!flags.mqtt.empty()) {
        options.publish = {
            BrokerOf("--mqtt", flags.mqtt, flags),
            {flags.site, flags.homeAssistant, *options.watch, options.request.interfaces}};
    }
}

std::string ChosenFormat(const Flags& flags) {
    std::vector<std::string> chosen;
    std::vector<std::string> all;
    for (const OutputFormat& format : OutputFormats()) {
        all.push_back(fmt::format("--{}", format.name));
        if (flags.formats.at(format.name)) {
            chosen.emplace_back(format.name);
        }
    }
    if (chosen.size() > 1) {
        throw CLI::ValidationError(fmt::format("choose one of {}", fmt::join(all, ", ")));
    }
    return chosen.empty() ? std::string() : chosen.front();
}

void CheckFormat(const Options& options) {
    if (options.output.format.empty()) {
        return;
    }
    const OutputFormat& format = FormatNamed(options.output.format);
    if (options.watch && !format.watches) {
        throw CLI::ValidationError("--watch", "has no end to write a document at; use --jsonl");
    }
    if (!options.compare.empty() && !format.compares) {
        throw CLI::ValidationError("--compare", "prints text or, with --json, one document");
    }
}

void CheckSearch(const Options& options, const Flags& flags) {
    if (flags.ipv4 && flags.ipv6) {
        throw CLI::ValidationError("choose one of --ipv4, --ipv6; without them both are searched");
    }
    if (!options.request.to.empty() && !options.request.onvif) {
        throw CLI::ValidationError("--to",
                                   "asks ONVIF devices; it cannot be combined with "
                                   "--only upnp");
    }
    if (!options.request.to.empty() && flags.ipv6) {
        throw CLI::ValidationError("--to",
                                   "takes IPv4 addresses; it cannot be combined with "
                                   "--ipv6");
    }
}

// What no single option's check can see.
void CheckTogether(const Options& options, const Flags& flags) {
    CheckSearch(options, flags);
    if (options.watch && !options.compare.empty()) {
        throw CLI::ValidationError("--watch", "cannot be combined with --compare");
    }
    if (!options.watch && !options.state.empty()) {
        throw CLI::ValidationError("--state", "keeps the list of --watch, which is missing");
    }
    if (options.output.quiet && options.output.verbose > 0) {
        throw CLI::ValidationError("--quiet", "cannot be combined with --verbose");
    }
    CheckFormat(options);
}

void CompleteRequest(const Flags& flags, Request& request) {
    try {
        for (const std::string& text : flags.to) {
            AddAddressRanges(text, request.to);
        }
    } catch (const std::invalid_argument& wrong) {
        throw CLI::ValidationError("--to", wrong.what());
    }
    request.timeout = std::chrono::seconds(flags.timeoutSeconds);
    request.maxTime = std::chrono::seconds(
        flags.maxSeconds == 0 ? flags.timeoutSeconds + kGraceSeconds : flags.maxSeconds);
    request.onvif = flags.only != "upnp";
    request.upnp = flags.only != "onvif";
    request.ipv4 = !flags.ipv6;
    request.ipv6 = !flags.ipv4;
}

void Complete(const CLI::App& app, const Flags& flags, Options& options) {
    CompleteRequest(flags, options.request);
    OutputSettings& output = options.output;
    output.format = ChosenFormat(flags);
    output.sortGiven = app.count("--sort") > 0;
    output.progress = !flags.noProgress && !output.quiet;
    if (flags.colour != "auto") {
        output.colour = flags.colour == "always" ? When::Always : When::Never;
    }
    if (app.count("--watch") > 0) {
        // CLI11 makes 0 of a number that was left out; nobody can ask for 0.
        const int seconds = flags.watch.empty() ? 0 : flags.watch.front();
        options.watch = std::chrono::seconds(seconds == 0 ? kDefaultWatchSeconds : seconds);
    }
    if (app.count("--config") > 0) {
        options.config = app.get_option("--config")->as<std::string>();
    }
    CheckTogether(options, flags);
    CompleteSites(app, flags, options);
}

}  // namespace

std::variant<Options, int> ParseArguments(int argc, const char* const* argv, std::ostream& out,
                                          std::ostream& error) {
    CLI::App app("Finds the IP cameras (ONVIF) and UPnP devices of the local networks.",
                 "lanscout");
    app.footer(kFooter);
    app.set_version_flag("-V,--version", "lanscout " LANSCOUT_VERSION);
    Options options;
    Flags flags;
    AddPlaceOptions(app, options, flags);
    AddSearchOptions(app, options, flags);
    AddOutputOptions(app, options.output, flags);
    AddTaskOptions(app, options, flags);
    AddSiteOptions(app, flags);
    try {
        app.parse(argc, argv);
        Complete(app, flags, options);
    } catch (const CLI::Success& answer) {
        return app.exit(answer, out, error);
    } catch (const CLI::Error& wrong) {
        error << "lanscout: " << ForDisplay(wrong.what(), LocaleCharset())
              << "\nTry 'lanscout --help'.\n";
        return kExitWrongUse;
    }
    return options;
}

}  // namespace Lanscout
