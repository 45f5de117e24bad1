// Run by the build: writes the schema that is installed.
//   writeschema FRAME > lanscout.schema.json
#include <exception>
#include <fstream>
#include <iostream>

#include "finder/device/devicejson.h"
#include "finder/schema.h"

int main(int argc, char** argv) {
    try {
        std::ifstream frame(argc == 2 ? argv[1] : "");
        std::cout << Lanscout::DumpDocument(Lanscout::FillSchema(Lanscout::Json::parse(frame)));
        return std::cout.flush() ? 0 : 1;
    } catch (const std::exception& failure) {
        std::cerr << "writeschema: " << failure.what() << "\n";
        return 1;
    }
}
