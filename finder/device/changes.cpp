#include "finder/device/changes.h"

#include <fmt/format.h>

#include "finder/text/safetext.h"

namespace Lanscout {

std::vector<FieldChange> ChangesBetween(const Device& before, const Device& after) {
    std::vector<FieldChange> changes;
    for (const Field& field : Fields()) {
        if (!field.reported || !IsKnown(field, before) || !IsKnown(field, after)) {
            continue;
        }
        std::string was = FieldText(field, before);
        std::string is = FieldText(field, after);
        if (was != is) {
            changes.push_back({field.name, std::move(was), std::move(is)});
        }
    }
    return changes;
}

std::string ChangesText(const std::vector<FieldChange>& changes) {
    std::string text;
    for (const FieldChange& change : changes) {
        text += fmt::format("{}{}: {} -> {}", text.empty() ? "" : "; ", change.field,
                            ForDisplay(change.before), ForDisplay(change.after));
    }
    return text;
}

Json ChangesToJson(const std::vector<FieldChange>& changes) {
    Json json = Json::array();
    for (const FieldChange& change : changes) {
        json.push_back(
            {{"field", change.field}, {"before", change.before}, {"after", change.after}});
    }
    return json;
}

}  // namespace Lanscout
