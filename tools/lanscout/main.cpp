#include <clocale>
#include <csignal>
#include <exception>
#include <iostream>

#include "finder/text/safetext.h"
#include "tools/lanscout/command.h"
#include "tools/lanscout/task/exitstatus.h"

namespace Lanscout {
namespace {

Wake EndOf(SystemSignals& signals) {
    return {signals.Fd(), [&signals] {
                signals.Take();
                return signals.Interrupted();
            }};
}

int Main(int argc, char** argv) {
    const auto parsed = ParseArguments(argc, argv, std::cout, std::cerr);
    if (const int* const status = std::get_if<int>(&parsed)) {
        return *status;
    }
    const Options& options = std::get<Options>(parsed);
    const bool rereads = options.watch && !options.config.empty();
    SystemSignals signals(rereads ? SystemSignals::Hangup::IsCollected
                                  : SystemSignals::Hangup::Ends);
    SystemTerminal terminal(EndOf(signals));
    SystemdService service;
    const Machine machine{terminal,
                          ReadEnvironment(),
                          signals,
                          service,
                          SystemFiles(EndOf(signals)),
                          RunSearch,
                          &std::chrono::steady_clock::now};
    return RunCommand(options, machine, [&]() -> std::optional<Options> {
        auto again = ParseArguments(argc, argv, std::cout, std::cerr);
        Options* const read = std::get_if<Options>(&again);
        return read == nullptr ? std::nullopt : std::optional(std::move(*read));
    });
}

}  // namespace
}  // namespace Lanscout

int main(int argc, char** argv) {
    using namespace Lanscout;
    try {
        std::setlocale(LC_CTYPE, "");
        // A file that may grow no further is an error like a full disk, with a message of its own.
        std::signal(SIGXFSZ, SIG_IGN);
        return Main(argc, argv);
    } catch (const std::exception& failure) {
        std::cerr << "lanscout: " << ForDisplay(failure.what(), LocaleCharset()) << "\n";
        return kExitCouldNotSearch;
    }
}
