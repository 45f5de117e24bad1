#include "tools/lanscout/output/csv.h"

#include <array>
#include <string_view>

#include "finder/device/fields.h"
#include "finder/text/safetext.h"

namespace Lanscout {
namespace {

// The second four are the first ones in full width, which some spreadsheets take for the same.
constexpr std::array<std::string_view, 8> kFormulaStarts{"=",      "+",      "-",      "@",
                                                         "\uFF1D", "\uFF0B", "\uFF0D", "\uFF20"};

bool StartsFormula(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    for (const std::string_view start : kFormulaStarts) {
        if (text.starts_with(start)) {
            return true;
        }
    }
    return false;
}

// Each semicolon may begin a cell of its own, and so may a quotation mark in it.
std::string Disarmed(std::string_view text) {
    std::string disarmed = StartsFormula(text) ? "'" : "";
    for (std::size_t at = 0; at < text.size(); ++at) {
        disarmed += text[at];
        if (text[at] == ';' && StartsFormula(text.substr(at + 1))) {
            disarmed += '\'';
        }
    }
    return disarmed;
}

std::string Quoted(const std::string& text) {
    if (text.find_first_of("\",;\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
        quoted += c == '"' ? "\"\"" : std::string(1, c);
    }
    return quoted + "\"";
}

// A number that the device chose cannot be a formula, and is left as it is.
std::string Cell(const Field& field, const Device& device) {
    const std::string text = ForDisplay(ShownText(field, device));
    return field.sort == SortKind::Number ? text : Quoted(Disarmed(text));
}

template <typename CellOf>
std::string Line(CellOf cellOf) {
    std::string line;
    bool first = true;
    for (const Field& field : Fields()) {
        if (field.csv) {
            line += (first ? "" : ",") + cellOf(field);
            first = false;
        }
    }
    return line + "\r\n";
}

}  // namespace

std::string CsvDocument(std::span<const Device> devices) {
    std::string text = Line([](const Field& field) { return std::string(field.name); });
    for (const Device& device : devices) {
        text += Line([&](const Field& field) { return Cell(field, device); });
    }
    return text;
}

std::unique_ptr<Output> CsvOutput::Make(const Means& means) {
    return std::make_unique<CsvOutput>(means);
}

void CsvOutput::EndSearch(const Report& report) {
    m_console.Output(CsvDocument(report.devices));
}

}  // namespace Lanscout
