#include "tools/lanscout/options.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <CLI/CLI.hpp>
#include <iostream>

#include "finder/device/columns.h"

namespace Lanscout {
namespace {

constexpr int kLongestSeconds = 86400;
constexpr int kGraceSeconds = 60;
constexpr int kDefaultWatchSeconds = 30;

constexpr char kFooter[] = R"(Examples:
  lanscout                               every interface, 5 seconds, a table
  lanscout --interface eth0 --timeout 15 one interface, more patience
  lanscout --json > monday.json          keep a result ...
  lanscout --compare monday.json         ... and see what is missing, new or changed
  lanscout --html cameras.html           a page to look at and to pass on
  lanscout --csv --sort hardware         for a spreadsheet
  lanscout --watch 60                    what comes and goes

Exit status: 0 found, 1 nothing found, 2 wrong use, 3 could not search,
4 differs from the --compare file.)";

// The flags of CLI11 that several options share until they are made into Options.
struct Flags {
    bool table = false;
    bool plain = false;
    bool json = false;
    bool jsonl = false;
    bool csv = false;
    bool noProgress = false;
    std::string only;
    std::string colour = "auto";
    std::vector<int> watch;
};

void AddSearchOptions(CLI::App& app, Options& options, Flags& flags) {
    app.add_option("-i,--interface", options.interfaces,
                   "Search the addresses of this interface; may be repeated")
        ->option_text("NAME ...")
        ->allow_extra_args(false);
    app.add_option("-a,--address", options.addresses,
                   "Search from this address of this machine; may be repeated")
        ->option_text("IP ...")
        ->check(CLI::ValidIPV4)
        ->allow_extra_args(false);
    app.add_option("-t,--timeout", options.timeoutSeconds,
                   "How long to search; the last answers are waited for up to 3 seconds more")
        ->option_text("SECONDS=5")
        ->check(CLI::Range(1, kLongestSeconds));
    app.add_option("--max-time", options.maxSeconds,
                   "End a search that still runs after this time (default: the timeout and 60)")
        ->option_text("SECONDS")
        ->check(CLI::Range(1, 2 * kLongestSeconds));
    app.add_option("--only", flags.only, "Search one way only")
        ->option_text("onvif|upnp")
        ->check(CLI::IsMember({"onvif", "upnp"}));
}

std::string NamesText() {
    return fmt::format("{}", fmt::join(ColumnNames(), ", "));
}

void AddOutputOptions(CLI::App& app, Options& options, Flags& flags) {
    app.add_flag("--table", flags.table, "A table (the default in a terminal)");
    app.add_flag("--plain", flags.plain,
                 "A line a device, fields between tabs (the default elsewhere)");
    app.add_flag("--json", flags.json, "One JSON document at the end");
    app.add_flag("--jsonl", flags.jsonl, "A JSON text a line, each at once");
    app.add_flag("--csv", flags.csv, "Comma-separated values at the end");
    app.add_option("--html", options.html, "Also write a page of the result to this file")
        ->option_text("FILE");
    app.add_option("-s,--sort", options.sort, "Order the devices by this column: " + NamesText())
        ->option_text("COLUMN=ip")
        ->check(CLI::IsMember(ColumnNames()));
    app.add_option("--color", flags.colour, "Colours in the table (NO_COLOR is respected)")
        ->option_text("auto|always|never")
        ->check(CLI::IsMember({"auto", "always", "never"}));
    app.add_flag("-q,--quiet", options.quiet, "Nothing but the result and errors");
    app.add_flag("-v,--verbose", options.verbose,
                 "The library's log lines too; twice for all of them");
    app.add_flag("--no-progress", flags.noProgress, "No progress bar, and no table until the end");
}

void AddTaskOptions(CLI::App& app, Options& options, Flags& flags) {
    app.add_option("-w,--watch", flags.watch,
                   "Search again and again, a search beginning every SECONDS (30), and report what "
                   "appears, goes away or changes")
        ->option_text("[SECONDS]")
        ->expected(0, 1)
        ->check(CLI::Range(1, kLongestSeconds));
    app.add_option("-c,--compare", options.compare,
                   "Compare with an earlier --json result: missing, new, changed")
        ->option_text("FILE");
}

Format ChosenFormat(const Flags& flags) {
    if (flags.table + flags.plain + flags.json + flags.jsonl + flags.csv > 1) {
        throw CLI::ValidationError("choose one of --table, --plain, --json, --jsonl, --csv");
    }
    if (flags.table) {
        return Format::Table;
    }
    if (flags.plain) {
        return Format::Plain;
    }
    if (flags.json) {
        return Format::Json;
    }
    if (flags.jsonl) {
        return Format::Jsonl;
    }
    return flags.csv ? Format::Csv : Format::Auto;
}

// What no single option's check can see.
void CheckTogether(const Options& options) {
    if (options.watchSeconds && !options.compare.empty()) {
        throw CLI::ValidationError("--watch", "cannot be combined with --compare");
    }
    if (options.watchSeconds && (options.format == Format::Json || options.format == Format::Csv)) {
        throw CLI::ValidationError("--watch", "has no end to write a document at; use --jsonl");
    }
    if (!options.compare.empty() &&
        (options.format == Format::Jsonl || options.format == Format::Csv)) {
        throw CLI::ValidationError("--compare", "prints text or, with --json, one document");
    }
    if (options.quiet && options.verbose > 0) {
        throw CLI::ValidationError("--quiet", "cannot be combined with --verbose");
    }
}

void Complete(const CLI::App& app, const Flags& flags, Options& options) {
    options.onvif = flags.only != "upnp";
    options.upnp = flags.only != "onvif";
    options.format = ChosenFormat(flags);
    options.sortGiven = app.count("--sort") > 0;
    options.progress = !flags.noProgress && !options.quiet;
    if (flags.colour != "auto") {
        options.colour = flags.colour == "always" ? When::Always : When::Never;
    }
    if (app.count("--watch") > 0) {
        options.watchSeconds = flags.watch.empty() ? kDefaultWatchSeconds : flags.watch.front();
    }
    if (options.maxSeconds == 0) {
        options.maxSeconds = options.timeoutSeconds + kGraceSeconds;
    }
    CheckTogether(options);
}

}  // namespace

std::variant<Options, int> ParseArguments(int argc, char** argv) {
    CLI::App app("Finds the IP cameras (ONVIF) and UPnP devices of the local networks.",
                 "lanscout");
    app.footer(kFooter);
    app.set_version_flag("-V,--version", "lanscout " LANSCOUT_VERSION);
    Options options;
    Flags flags;
    AddSearchOptions(app, options, flags);
    AddOutputOptions(app, options, flags);
    AddTaskOptions(app, options, flags);
    try {
        app.parse(argc, argv);
        Complete(app, flags, options);
    } catch (const CLI::Success& answer) {
        return app.exit(answer);
    } catch (const CLI::Error& wrong) {
        std::cerr << "lanscout: " << wrong.what() << "\nTry 'lanscout --help'.\n";
        return kExitWrongUse;
    }
    return options;
}

}  // namespace Lanscout
