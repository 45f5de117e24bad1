#include "tools/lanscout/command.h"

#include <stdexcept>
#include <utility>

#include "tools/lanscout/task/compare.h"
#include "tools/lanscout/task/exitstatus.h"
#include "tools/lanscout/task/search.h"
#include "tools/lanscout/task/watch.h"

namespace Lanscout {
namespace {

// What is wrong with the user's files is told before the first search.
class WrongFile : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

template <typename Use>
auto BeforeSearch(Use use) {
    try {
        return use();
    } catch (const std::runtime_error& wrong) {
        throw WrongFile(wrong.what());
    }
}

WatchTask WatchTaskOf(const Options& options) {
    return {options.request, options.output,  *options.watch,
            options.state,   options.publish, options.forget};
}

class Command {
public:
    Command(Options options, const Machine& machine) : m_machine(machine) {
        Use(std::move(options));
    }

    int Run(const std::function<std::optional<Options>()>& readAgain) {
        try {
            for (const std::string& file : {m_options.output.html, m_options.output.fileSd}) {
                if (!file.empty()) {
                    BeforeSearch([&] { m_machine.files.checkWritable(file); });
                }
            }
            return RunTask(readAgain);
        } catch (const WrongFile& wrong) {
            Say(wrong);
            return kExitWrongUse;
        } catch (const std::runtime_error& wrong) {
            Say(wrong);
            return kExitCouldNotSearch;
        }
    }

private:
    void Use(Options options) {
        m_options = std::move(options);
        m_console.emplace(m_machine.terminal, m_options.output, m_machine.environment);
        if (m_options.output.format.empty()) {
            m_options.output.format = m_console->IsTerminal() ? "table" : "plain";
        }
    }

    Surroundings World() {
        return {*m_console,      m_machine.signals, m_machine.service,
                m_machine.files, m_machine.search,  m_machine.now};
    }

    int RunTask(const std::function<std::optional<Options>()>& readAgain) {
        if (m_options.watch) {
            return RunWatch(readAgain);
        }
        Surroundings world = World();
        if (m_options.compare.empty()) {
            return RunSearchTask({m_options.request, m_options.output}, world);
        }
        CompareTask task{m_options.request, m_options.output, {}};
        task.before =
            BeforeSearch([&] { return ReadEarlierResult(m_options.compare, world.files); });
        return RunCompareTask(task, world);
    }

    int RunWatch(const std::function<std::optional<Options>()>& readAgain) {
        Surroundings first = World();
        WatchList list = BeforeSearch([&] { return ReadWatchList(WatchTaskOf(m_options), first); });
        while (true) {
            Surroundings world = World();
            if (const auto status = RunWatchTask(WatchTaskOf(m_options), world, list)) {
                return *status;
            }
            m_machine.service.Reloading();
            std::optional<Options> options = readAgain();
            if (options && options->watch && options->state == m_options.state) {
                Use(std::move(*options));
            } else {
                m_console->Say("lanscout: the watch goes on with the options that it had");
            }
        }
    }

    void Say(const std::runtime_error& wrong) {
        m_console->Say("lanscout: " + ForDisplay(wrong.what()));
    }

    const Machine& m_machine;  // NOLINT: lives longer
    Options m_options;
    std::optional<Console> m_console;
};

}  // namespace

int RunCommand(Options options, const Machine& machine,
               const std::function<std::optional<Options>()>& readAgain) {
    return Command(std::move(options), machine).Run(readAgain);
}

}  // namespace Lanscout
