// Tells a lasting problem once, and again when it has come back.
#pragma once

#include <vector>

#include "tools/lanscout/output/reporter.h"

namespace Lanscout {

class LastingProblems {
public:
    explicit LastingProblems(Reporter& reporter) : m_reporter(reporter) {}

    void Take(const Problem& problem);
    void NextRound();

private:
    Reporter& m_reporter;  // NOLINT: lives longer
    std::vector<Problem> m_former;
    std::vector<Problem> m_present;
};

}  // namespace Lanscout
