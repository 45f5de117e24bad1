#include <clocale>
#include <exception>
#include <iostream>

#include "tools/lanscout/arguments.h"
#include "tools/lanscout/command.h"
#include "tools/lanscout/safetext.h"

int main(int argc, char** argv) {
    using namespace LanscoutTool;
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
