#include "tools/lanscout/output/table.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <string_view>

#include "finder/device/columns.h"

namespace Lanscout {
namespace {

constexpr int kGap = 2;

// How a column behaves where there is little room.
struct Room {
    std::string_view name;
    int least;  // columns it may be cut to; 0: not to be cut
    int most;   // columns it is cut to in any case; 0: no limit
    int rank;   // the highest is left out first; 0: never
};

constexpr std::array kRooms{
    Room{"ip", 0, 0, 0},        Room{"port", 0, 0, 3},       Room{"hardware", 12, 32, 1},
    Room{"mac", 0, 0, 2},       Room{"maker", 10, 24, 6},    Room{"kind", 0, 0, 4},
    Room{"protocols", 0, 0, 8}, Room{"name", 12, 32, 5},     Room{"model", 10, 24, 9},
    Room{"page", 0, 0, 7},      Room{"interface", 0, 0, 10},
};

struct Cells {
    const Room* room = nullptr;
    std::string title;
    std::vector<std::string> texts;
    int width = 0;
};

std::string CellText(const Column& column, const Device& device, Charset charset) {
    std::string text = column.text(device);
    if (text.empty() && std::string_view(column.name) == "mac") {
        text = "N/A";
    }
    return ForDisplay(text, charset);
}

bool IsEmpty(const Cells& cells) {
    return std::all_of(cells.texts.begin(), cells.texts.end(),
                       [](const std::string& text) { return text.empty(); });
}

// One interface for all devices is not worth a column.
bool IsWorthShowing(const Cells& cells) {
    if (cells.room->name == "interface") {
        return std::adjacent_find(cells.texts.begin(), cells.texts.end(), std::not_equal_to<>()) !=
               cells.texts.end();
    }
    return cells.room->rank < 3 || !IsEmpty(cells);
}

Cells MakeCells(const Column& column, const std::vector<Device>& devices, Charset charset) {
    Cells cells;
    cells.room = std::find_if(kRooms.begin(), kRooms.end(),
                              [&](const Room& room) { return room.name == column.name; });
    cells.title = column.title;
    cells.width = DisplayWidth(cells.title);
    for (const Device& device : devices) {
        cells.texts.push_back(CellText(column, device, charset));
        cells.width = std::max(cells.width, DisplayWidth(cells.texts.back()));
    }
    if (cells.room->most > 0) {
        cells.width = std::min(cells.width, cells.room->most);
    }
    return cells;
}

int TotalWidth(const std::vector<Cells>& table) {
    return std::accumulate(table.begin(), table.end(), -kGap,
                           [](int sum, const Cells& cells) { return sum + cells.width + kGap; });
}

void Shrink(std::vector<Cells>& table, int width) {
    for (int excess = TotalWidth(table) - width; excess > 0;) {
        const auto widest =
            std::max_element(table.begin(), table.end(), [](const Cells& a, const Cells& b) {
                const auto spare = [](const Cells& cells) {
                    return cells.room->least > 0 ? cells.width - cells.room->least : 0;
                };
                return spare(a) < spare(b);
            });
        if (widest->room->least == 0 || widest->width <= widest->room->least) {
            return;
        }
        --widest->width;
        --excess;
    }
}

int LeastWidth(std::vector<Cells> table) {
    for (Cells& cells : table) {
        if (cells.room->least > 0) {
            cells.width = std::min(cells.width, cells.room->least);
        }
    }
    return TotalWidth(table);
}

void DropColumns(std::vector<Cells>& table, int width) {
    while (table.size() > 1 && LeastWidth(table) > width) {
        const auto last = std::max_element(
            table.begin(), table.end(),
            [](const Cells& a, const Cells& b) { return a.room->rank < b.room->rank; });
        table.erase(last);
    }
}

std::string Coloured(const std::string& text, const char* sgr, bool colour) {
    return colour ? std::string("\x1b[") + sgr + "m" + text + "\x1b[0m" : text;
}

const char* KindColour(const std::string& text) {
    if (text.starts_with("camera")) {
        return "32";
    }
    return text.starts_with("other") ? "33" : "2";
}

void TrimEnd(std::string& line) {
    line.erase(line.find_last_not_of(' ') + 1);
}

std::string LayOutLine(const std::vector<Cells>& table, std::size_t row, const TableStyle& style) {
    std::string line;
    for (const Cells& cells : table) {
        std::string cell = FitWidth(cells.texts[row], cells.width, style.charset);
        if (&cells == &table.back()) {
            TrimEnd(cell);
        }
        const bool kind = cells.room->name == "kind";
        line += kind ? Coloured(cell, KindColour(cells.texts[row]), style.colour) : cell;
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
        line += FitWidth(cells.title, cells.width, style.charset) + std::string(kGap, ' ');
    }
    TrimEnd(line);
    return Coloured(line, "1", style.colour);
}

}  // namespace

std::vector<std::string> LayOutTable(const std::vector<Device>& devices, const TableStyle& style) {
    std::vector<Cells> table;
    for (const Column& column : Columns()) {
        Cells cells = MakeCells(column, devices, style.charset);
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
        lines.push_back(LayOutLine(table, row, style));
    }
    return lines;
}

}  // namespace Lanscout
