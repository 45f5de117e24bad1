#include "tools/lanscout/output/console.h"

#include <fmt/core.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>

namespace Lanscout {
namespace {

constexpr int kDefaultColumns = 80;
constexpr int kDefaultRows = 24;

bool IsDumb() {
    const char* const term = std::getenv("TERM");
    return term == nullptr || *term == '\0' || std::string_view(term) == "dumb";
}

bool IsSet(const char* variable) {
    const char* const value = std::getenv(variable);
    return value != nullptr && *value != '\0';
}

winsize SizeOf(int fd) {
    winsize size{};
    ioctl(fd, TIOCGWINSZ, &size);
    size.ws_col = size.ws_col == 0 ? kDefaultColumns : size.ws_col;
    size.ws_row = size.ws_row == 0 ? kDefaultRows : size.ws_row;
    return size;
}

// False and errno when not all of it could be written.
bool WriteAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = write(fd, text.data(), text.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
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

}  // namespace

Console::Console(const Options& options)
    : m_outputIsTerminal(isatty(STDOUT_FILENO) == 1), m_charset(LocaleCharset()) {
    const bool table = options.format == Format::Table || options.format == Format::Auto;
    if (options.progress && !IsDumb()) {
        if (m_outputIsTerminal && table) {
            m_drawFd = STDOUT_FILENO;
        } else if (isatty(STDERR_FILENO) == 1) {
            m_drawFd = STDERR_FILENO;
        }
    }
    m_colour =
        options.colour == When::Always ||
        (options.colour == When::Auto && m_outputIsTerminal && !IsDumb() && !IsSet("NO_COLOR"));
}

int Console::OutputWidth() const {
    return m_outputIsTerminal ? SizeOf(STDOUT_FILENO).ws_col : 0;
}

int Console::DrawWidth() const {
    return SizeOf(m_drawFd).ws_col - 1;  // the last column would leave the cursor in between
}

int Console::DrawHeight() const {
    return SizeOf(m_drawFd).ws_row - 1;  // below the block stands the cursor
}

bool Console::Output(std::string_view text) {
    Erase();
    if (m_outputError == 0 && !WriteAll(STDOUT_FILENO, text)) {
        m_outputError = errno;
    }
    return m_outputError == 0;
}

void Console::Say(std::string_view line) {
    Erase();
    WriteAll(STDERR_FILENO, std::string(line) + "\n");
}

// Line by line, never by clearing from the top of the screen: some terminals put what is cleared
// that way into their history, a copy for every frame.
void Console::Draw(const std::vector<std::string>& lines) {
    if (!CanDraw()) {
        return;
    }
    const int columns = SizeOf(m_drawFd).ws_col;
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
    WriteAll(m_drawFd, frame);
}

// A terminal that was made narrower has broken the block's lines, so that there are more of them;
// what has left its upper end is out of reach.
int Console::DrawnRows() const {
    const winsize size = SizeOf(m_drawFd);
    int rows = 0;
    for (const std::string& line : m_drawn) {
        rows += std::max(1, (VisibleWidth(line) + size.ws_col - 1) / size.ws_col);
    }
    return std::min<int>(rows, size.ws_row - 1);
}

void Console::Erase() {
    if (!m_drawn.empty()) {
        const int rows = DrawnRows();
        WriteAll(m_drawFd,
                 fmt::format("\x1b[{}A\r", rows) + ClearRows(static_cast<std::size_t>(rows)));
        m_drawn.clear();
    }
}

}  // namespace Lanscout
