#include "tools/lanscout/output/formats.h"

#include <cmath>

#include "finder/device/columns.h"
#include "finder/text/safetext.h"

namespace Lanscout {
namespace {

template <typename Field>
std::string Join(const char* separator, Field field) {
    std::string line;
    for (const Column& column : Columns()) {
        line += (line.empty() ? "" : separator) + field(column);
    }
    return line;
}

std::string CsvField(std::string text) {
    text = ForDisplay(text);
    if (!text.empty() && std::string_view("=+-@").find(text.front()) != std::string_view::npos) {
        text.insert(0, 1, '\'');
    }
    if (text.find_first_of("\",\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
        quoted += c == '"' ? "\"\"" : std::string(1, c);
    }
    return quoted + "\"";
}

// A number that the device chose cannot be a formula, and is left as it is.
std::string CsvCell(const Column& column, const Device& device) {
    return std::string_view(column.name) == "port" ? column.text(device)
                                                   : CsvField(column.text(device));
}

Json SearchToJson(const SearchReport& search) {
    return {{"protocol", ProtocolText(search.protocol)},
            {"interface", search.target.interface},
            {"address", search.target.address},
            {"outcome", OutcomeText(search.outcome)}};
}

Json ProblemToJson(const Problem& problem) {
    const auto orNull = [](const std::string& text) { return text.empty() ? Json() : Json(text); };
    return {{"weight", problem.weight == Problem::Weight::Error ? "error" : "notice"},
            {"protocol", orNull(problem.protocol)},
            {"interface", orNull(problem.target.interface)},
            {"address", orNull(problem.target.address)},
            {"what", problem.what},
            {"remedy", orNull(problem.remedy)}};
}

template <typename T, typename Convert>
Json ListToJson(const std::vector<T>& list, Convert convert) {
    Json json = Json::array();
    for (const T& one : list) {
        json.push_back(convert(one));
    }
    return json;
}

}  // namespace

std::string PlainLine(const Device& device) {
    return Join("\t", [&](const Column& column) {
        const std::string text = ForDisplay(column.text(device));
        return text.empty() ? "-" : text;
    });
}

std::string PlainHeading() {
    return Join("\t", [](const Column& column) { return std::string(column.name); });
}

std::string CsvDocument(const std::vector<Device>& devices) {
    std::string text = Join(",", [](const Column& column) { return std::string(column.name); });
    text += "\r\n";
    for (const Device& device : devices) {
        bool first = true;
        for (const Column& column : Columns()) {
            text += (first ? "" : ",") + CsvCell(column, device);
            first = false;
        }
        text += "\r\n";
    }
    return text;
}

Json ReportToJson(const Report& report) {
    Json json;
    json["lanscout"] = LANSCOUT_VERSION;
    json["started"] = report.started;
    json["finished"] = report.finished;
    json["seconds"] = std::round(report.seconds * 10) / 10;
    json["complete"] = report.IsComplete();
    json["searches"] = ListToJson(report.searches, SearchToJson);
    json["problems"] = ListToJson(report.problems, ProblemToJson);
    json["devices"] = ListToJson(report.devices, DeviceToJson);
    return json;
}

}  // namespace Lanscout
