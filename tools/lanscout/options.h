// The command line: the options, their checks and help texts.
#pragma once

#include <chrono>
#include <iosfwd>
#include <optional>
#include <string>
#include <variant>

#include "finder/finder.h"
#include "tools/lanscout/output/settings.h"
#include "tools/lanscout/publish/publisher.h"

namespace Lanscout {

struct Options {
    Request request;
    OutputSettings output;
    std::string compare;                        // earlier result; empty: none
    std::optional<std::chrono::seconds> watch;  // from one search to the next
    std::string state;                          // file that keeps the watch's list; empty: none
    std::optional<PublishSettings> publish;
    std::chrono::seconds forget{std::chrono::days(30)};  // of a watch's list
    std::string config;  // file that options were read from; empty: none
};

// The options, or the exit status when there is nothing more to do: --help and --version were
// answered on `out`, or wrong use was explained on `error`.
std::variant<Options, int> ParseArguments(int argc, const char* const* argv, std::ostream& out,
                                          std::ostream& error);

}  // namespace Lanscout
