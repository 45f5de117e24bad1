#include "tools/lanscout/task/lastingproblems.h"

#include <algorithm>
#include <utility>

namespace Lanscout {

void LastingProblems::Take(const Problem& problem) {
    if (std::find(m_former.begin(), m_former.end(), problem) == m_former.end()) {
        m_reporter.OnProblem(problem);
    }
    m_present.push_back(problem);
}

void LastingProblems::NextRound() {
    m_former = std::exchange(m_present, {});
}

}  // namespace Lanscout
