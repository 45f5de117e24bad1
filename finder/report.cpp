#include "finder/report.h"

#include <algorithm>

namespace Lanscout {

const char* OutcomeText(Outcome outcome) {
    switch (outcome) {
        case Outcome::Done:
            return "done";
        case Outcome::Failed:
            return "failed";
        case Outcome::CutShort:
            return "cut short";
        case Outcome::Interrupted:
            break;
    }
    return "interrupted";
}

bool Report::IsComplete() const {
    return !searches.empty() &&
           std::all_of(searches.begin(), searches.end(),
                       [](const SearchReport& search) { return search.outcome == Outcome::Done; });
}

bool Report::HasSearched() const {
    return std::any_of(searches.begin(), searches.end(), [](const SearchReport& search) {
        return search.outcome != Outcome::Failed;
    });
}

bool Report::WasInterrupted() const {
    return std::any_of(searches.begin(), searches.end(), [](const SearchReport& search) {
        return search.outcome == Outcome::Interrupted;
    });
}

}  // namespace Lanscout
