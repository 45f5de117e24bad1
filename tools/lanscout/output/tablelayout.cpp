#include "tools/lanscout/output/tablelayout.h"

#include <algorithm>
#include <numeric>
#include <set>
#include <variant>

namespace Lanscout {
namespace {

constexpr int kGap = 2;

// Columns up to this rank are in every table. Those of the other two are shown only where devices
// differ: one interface for all is not worth a column.
constexpr int kLastInEveryTable = 2;
constexpr int kFirstWhereTheyDiffer = 11;
constexpr int kLastWhereTheyDiffer = 12;

struct Cells {
    const Field* field = nullptr;
    std::vector<std::string> texts;
    int width = 0;
};

bool IsCut(const Cells& cells) {
    return cells.field->width.least > 0;
}

std::string CellText(const Field& field, const Device& device, Charset charset) {
    const std::string text = ForDisplay(ShownText(field, device), charset);
    return text.empty() && IsInEveryTable(field) ? kNotKnown : text;
}

bool IsEmpty(const Cells& cells) {
    return std::all_of(cells.texts.begin(), cells.texts.end(),
                       [](const std::string& text) { return text.empty(); });
}

// Whether there are two texts; one that is not known is none.
bool Differ(const Cells& cells) {
    std::set<std::string> known(cells.texts.begin(), cells.texts.end());
    known.erase("");
    return known.size() > 1;
}

bool IsWorthShowing(const Cells& cells) {
    if (IsInEveryTable(*cells.field)) {
        return true;
    }
    const int rank = cells.field->rank;
    return rank >= kFirstWhereTheyDiffer && rank <= kLastWhereTheyDiffer ? Differ(cells)
                                                                         : !IsEmpty(cells);
}

Cells MakeCells(const Field& field, std::span<const Device> devices, Charset charset) {
    Cells cells;
    cells.field = &field;
    cells.width = DisplayWidth(field.title);
    for (const Device& device : devices) {
        cells.texts.push_back(CellText(field, device, charset));
        cells.width = std::max(cells.width, DisplayWidth(cells.texts.back()));
    }
    if (field.width.most > 0) {
        cells.width = std::min(cells.width, field.width.most);
    }
    return cells;
}

int TotalWidth(const std::vector<Cells>& table) {
    return std::accumulate(table.begin(), table.end(), -kGap,
                           [](int sum, const Cells& cells) { return sum + cells.width + kGap; });
}

int Spare(const Cells& cells) {
    return IsCut(cells) ? cells.width - cells.field->width.least : 0;
}

void Shrink(std::vector<Cells>& table, int width) {
    for (int excess = TotalWidth(table) - width; excess > 0; --excess) {
        const auto widest =
            std::max_element(table.begin(), table.end(),
                             [](const Cells& a, const Cells& b) { return Spare(a) < Spare(b); });
        if (Spare(*widest) <= 0) {
            return;
        }
        --widest->width;
    }
}

int LeastWidth(std::vector<Cells> table) {
    for (Cells& cells : table) {
        cells.width -= std::max(Spare(cells), 0);
    }
    return TotalWidth(table);
}

void DropColumns(std::vector<Cells>& table, int width) {
    while (table.size() > 1 && LeastWidth(table) > width) {
        const auto last = std::max_element(
            table.begin(), table.end(),
            [](const Cells& a, const Cells& b) { return a.field->rank < b.field->rank; });
        table.erase(last);
    }
}

std::string Coloured(const std::string& text, const char* sgr, bool colour) {
    return colour ? std::string("\x1b[") + sgr + "m" + text + "\x1b[0m" : text;
}

// A device's kind stands out wherever it is shown; null for other columns.
const char* ColourOf(const Field& field, const Device& device) {
    const auto* const kind = std::get_if<Kind Device::*>(&field.member);
    if (kind == nullptr) {
        return nullptr;
    }
    switch (device.*(*kind)) {
        case Kind::Camera:
            return "32";
        case Kind::Other:
            return "33";
        case Kind::Unknown:
            break;
    }
    return "2";
}

void TrimEnd(std::string& line) {
    line.erase(line.find_last_not_of(' ') + 1);
}

std::string LayOutLine(const std::vector<Cells>& table, std::size_t row, const Device& device,
                       const TableStyle& style) {
    std::string line;
    for (const Cells& cells : table) {
        std::string cell = FitWidth(cells.texts[row], cells.width, style.charset);
        if (&cells == &table.back()) {
            TrimEnd(cell);
        }
        const char* const colour = ColourOf(*cells.field, device);
        line += colour == nullptr ? cell : Coloured(cell, colour, style.colour);
        if (&cells != &table.back()) {
            line += std::string(kGap, ' ');
        }
    }
    TrimEnd(line);
    return line;
}

std::string LayOutTitles(const std::vector<Cells>& table, const TableStyle& style) {
    std::string line;
    for (const Cells& cells : table) {
        line += FitWidth(cells.field->title, cells.width, style.charset) + std::string(kGap, ' ');
    }
    TrimEnd(line);
    return Coloured(line, "1", style.colour);
}

}  // namespace

bool IsInEveryTable(const Field& field) {
    return field.rank != kNotInTable && field.rank <= kLastInEveryTable;
}

std::string FitAtLeast(const std::string& text, int width) {
    return FitWidth(text, std::max(width, DisplayWidth(text)));
}

std::vector<std::string> LayOutTable(std::span<const Device> devices, const TableStyle& style) {
    std::vector<Cells> table;
    for (const Field& field : Fields()) {
        if (field.rank == kNotInTable) {
            continue;
        }
        Cells cells = MakeCells(field, devices, style.charset);
        if (IsWorthShowing(cells)) {
            table.push_back(std::move(cells));
        }
    }
    if (style.width > 0) {
        DropColumns(table, style.width);
        Shrink(table, style.width);
    }
    std::vector<std::string> lines{LayOutTitles(table, style)};
    for (std::size_t row = 0; row < devices.size(); ++row) {
        lines.push_back(LayOutLine(table, row, devices[row], style));
    }
    return lines;
}

}  // namespace Lanscout
