#include "tools/lanscout/output/console.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdlib>
#include <string>

namespace Lanscout {
namespace {

bool IsDumb() {
    const char* const term = std::getenv("TERM");
    return term == nullptr || *term == '\0' || std::string_view(term) == "dumb";
}

bool IsSet(const char* variable) {
    const char* const value = std::getenv(variable);
    return value != nullptr && *value != '\0';
}

// Columns of a line whose colours are SGR sequences.
int VisibleWidth(std::string_view line) {
    std::string text;
    for (std::size_t at = 0; at < line.size(); ++at) {
        if (line[at] == '\x1b') {
            at = std::min(line.find('m', at), line.size());
        } else {
            text += line[at];
        }
    }
    return DisplayWidth(text);
}

// Clears that many rows from the cursor's on, and returns to the first.
std::string ClearRows(std::size_t rows) {
    std::string text;
    for (std::size_t i = 0; i < rows; ++i) {
        text += "\x1b[2K\n";
    }
    return text + fmt::format("\x1b[{}A", rows);
}

bool IsAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return (c & 0x80) == 0; });
}

// What is not ASCII spelled out, and nothing else touched: the sequences of the block and the
// table's colours stand in such texts too.
std::string ToAscii(std::string_view text) {
    std::string ascii;
    for (std::size_t at = 0; at < text.size();) {
        const bool plain = (text[at] & 0x80) == 0;
        std::size_t end = at;
        while (end < text.size() && ((text[end] & 0x80) == 0) == plain) {
            ++end;
        }
        const std::string_view piece = text.substr(at, end - at);
        ascii += plain ? std::string(piece) : ForDisplay(piece, Charset::Ascii);
        at = end;
    }
    return ascii;
}

}  // namespace

Environment ReadEnvironment() {
    return {IsDumb(), IsSet("NO_COLOR"), LocaleCharset()};
}

Console::Console(Terminal& terminal, const OutputSettings& settings, const Environment& environment)
    : m_terminal(terminal),
      m_outputIsTerminal(terminal.IsTerminal(Stream::Output)),
      m_charset(environment.charset) {
    const bool drawsOnOutput =
        m_outputIsTerminal && (settings.format.empty() || settings.format == "table");
    m_drawOn = drawsOnOutput ? Stream::Output : Stream::Error;
    m_canDraw = settings.progress && !environment.dumb && terminal.IsTerminal(m_drawOn);
    m_colour =
        settings.colour == When::Always || (settings.colour == When::Auto && m_outputIsTerminal &&
                                            !environment.dumb && !environment.noColour);
}

int Console::OutputWidth() const {
    return m_outputIsTerminal ? m_terminal.SizeOf(Stream::Output).columns : 0;
}

int Console::DrawWidth() const {
    return m_terminal.SizeOf(m_drawOn).columns - 1;  // the last one would leave the cursor between
}

int Console::DrawHeight() const {
    return m_terminal.SizeOf(m_drawOn).rows - 1;  // below the block stands the cursor
}

// In other character sets than UTF-8, bytes from 0x80 on may be control characters.
std::string Console::FitFor(Stream stream, std::string_view text) const {
    const bool spelledOut =
        m_charset == Charset::Ascii && !IsAscii(text) && m_terminal.IsTerminal(stream);
    return spelledOut ? ToAscii(text) : std::string(text);
}

bool Console::Output(std::string_view text) {
    Erase();
    if (m_outputError == 0) {
        m_outputError = m_terminal.Write(Stream::Output, FitFor(Stream::Output, text));
    }
    return m_outputError == 0;
}

void Console::Say(std::string_view line) {
    Erase();
    m_terminal.Write(Stream::Error, FitFor(Stream::Error, line) + "\n");
}

// Line by line, never by clearing from the top of the screen: some terminals put what is cleared
// that way into their history, a copy for every frame.
void Console::Draw(const std::vector<std::string>& lines) {
    if (!CanDraw()) {
        return;
    }
    const int columns = m_terminal.SizeOf(m_drawOn).columns;
    if (columns != m_drawnColumns) {
        Erase();
    } else if (lines == m_drawn) {
        return;
    }
    std::string frame = m_drawn.empty() ? "" : fmt::format("\x1b[{}A\r", m_drawn.size());
    for (const std::string& line : lines) {
        frame += line + "\x1b[K\n";
    }
    if (lines.size() < m_drawn.size()) {
        frame += ClearRows(m_drawn.size() - lines.size());
    }
    m_drawn = lines;
    m_drawnColumns = columns;
    m_terminal.Write(m_drawOn, FitFor(m_drawOn, frame));
}

// A terminal that was made narrower has broken the block's lines, so that there are more of them;
// what has left its upper end is out of reach.
int Console::DrawnRows() const {
    const TerminalSize size = m_terminal.SizeOf(m_drawOn);
    int rows = 0;
    for (const std::string& line : m_drawn) {
        rows += std::max(1, (VisibleWidth(line) + size.columns - 1) / size.columns);
    }
    return std::min(rows, size.rows - 1);
}

void Console::Erase() {
    if (!m_drawn.empty()) {
        const int rows = DrawnRows();
        m_terminal.Write(
            m_drawOn, fmt::format("\x1b[{}A\r", rows) + ClearRows(static_cast<std::size_t>(rows)));
        m_drawn.clear();
    }
}

}  // namespace Lanscout
