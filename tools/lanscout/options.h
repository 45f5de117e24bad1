// The command line.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace Lanscout {

enum class Format {
    Auto,  // Table in a terminal, Plain elsewhere
    Table,
    Plain,
    Json,
    Jsonl,
    Csv,
};

enum class When { Auto, Always, Never };

struct Options {
    std::vector<std::string> interfaces;
    std::vector<std::string> addresses;
    int timeoutSeconds = 5;
    int maxSeconds = 0;  // a search's process lives no longer; 0: the timeout and 60
    bool onvif = true;
    bool upnp = true;
    Format format = Format::Auto;
    std::string html;  // file to write; empty: none
    std::string sort = "ip";
    bool sortGiven = false;
    std::string compare;  // earlier result; empty: none
    std::optional<int> watchSeconds;
    When colour = When::Auto;
    bool quiet = false;
    bool progress = true;
    int verbose = 0;
};

// Exit statuses.
inline constexpr int kExitFound = 0;
inline constexpr int kExitNothingFound = 1;
inline constexpr int kExitWrongUse = 2;
inline constexpr int kExitCouldNotSearch = 3;
inline constexpr int kExitDiffers = 4;

// The options, or the exit status when there is nothing more to do: --help and --version were
// answered, or wrong use was explained.
std::variant<Options, int> ParseArguments(int argc, char** argv);

}  // namespace Lanscout
