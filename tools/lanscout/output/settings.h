// How results are shown, as the user chose it. The values here are the defaults of the options.
#pragma once

#include <string>

namespace Lanscout {

enum class When { Auto, Always, Never };

struct OutputSettings {
    std::string
        format;        // a name of OutputFormats(); empty: a table in a terminal, else plain lines
    std::string html;  // page to write beside it; empty: none
    std::string fileSd;       // targets for Prometheus; empty: none
    std::string sort = "ip";  // a field's name
    bool sortGiven = false;
    When colour = When::Auto;
    bool quiet = false;
    bool progress = true;
    int verbose = 0;
};

}  // namespace Lanscout
