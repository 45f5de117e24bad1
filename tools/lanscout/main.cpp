#include <clocale>
#include <exception>
#include <iostream>

#include "finder/text/safetext.h"
#include "tools/lanscout/options.h"
#include "tools/lanscout/task/command.h"

int main(int argc, char** argv) {
    using namespace Lanscout;
    try {
        std::setlocale(LC_CTYPE, "");
        const auto parsed = ParseArguments(argc, argv);
        if (const int* const status = std::get_if<int>(&parsed)) {
            return *status;
        }
        return RunCommand(std::get<Options>(parsed));
    } catch (const std::exception& failure) {
        std::cerr << "lanscout: " << ForDisplay(failure.what()) << "\n";
        return kExitCouldNotSearch;
    }
}
