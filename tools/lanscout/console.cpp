#include "tools/lanscout/console.h"

#include <fmt/core.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>

namespace LanscoutTool {
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

void Console::Draw(const std::vector<std::string>& lines) {
    if (!CanDraw()) {
        return;
    }
    std::string frame = EraseSequence();
    m_drawnWidths.clear();
    for (const std::string& line : lines) {
        frame += line + "\n";
        m_drawnWidths.push_back(VisibleWidth(line));
    }
    WriteAll(m_drawFd, frame);
}

// A terminal that was made narrower has broken the block's lines, so that there are more of them.
std::string Console::EraseSequence() const {
    if (m_drawnWidths.empty()) {
        return {};
    }
    const winsize size = SizeOf(m_drawFd);
    int rows = 0;
    for (const int width : m_drawnWidths) {
        rows += std::max(1, (width + size.ws_col - 1) / size.ws_col);
    }
    return fmt::format("\x1b[{}A\r\x1b[J", std::min<int>(rows, size.ws_row - 1));
}

void Console::Erase() {
    if (!m_drawnWidths.empty()) {
        WriteAll(m_drawFd, EraseSequence());
        m_drawnWidths.clear();
    }
}

}  // namespace LanscoutTool
