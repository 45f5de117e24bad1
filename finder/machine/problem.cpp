#include "finder/machine/problem.h"

#include "finder/text/safetext.h"

namespace Lanscout {

std::string ProblemText(const Problem& problem) {
    std::string text;
    if (!problem.target.interface.empty()) {
        text += problem.target.interface + " ";
    }
    if (!problem.target.address.empty()) {
        text += problem.target.interface.empty() ? problem.target.address + " "
                                                 : "(" + problem.target.address + ") ";
    }
    if (!problem.protocol.empty()) {
        text += problem.protocol + " ";
    }
    if (!text.empty()) {
        text.back() = ':';
        text += ' ';
    }
    text += problem.what;
    if (!problem.remedy.empty()) {
        text += ". " + problem.remedy;
    }
    return "lanscout: " + ForDisplay(text);
}

}  // namespace Lanscout
