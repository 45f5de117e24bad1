#include "tools/lanscout/output/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace Lanscout {
namespace {

constexpr int kDefaultColumns = 80;
constexpr int kDefaultRows = 24;

int FdOf(Stream stream) {
    return stream == Stream::Output ? STDOUT_FILENO : STDERR_FILENO;
}

}  // namespace

SystemTerminal::SystemTerminal(Wake wake)
    : m_output(STDOUT_FILENO, wake), m_error(STDERR_FILENO, wake) {}

bool SystemTerminal::IsTerminal(Stream stream) const {
    return isatty(FdOf(stream)) == 1;
}

TerminalSize SystemTerminal::SizeOf(Stream stream) const {
    winsize size{};
    ioctl(FdOf(stream), TIOCGWINSZ, &size);
    return {size.ws_col == 0 ? kDefaultColumns : size.ws_col,
            size.ws_row == 0 ? kDefaultRows : size.ws_row};
}

int SystemTerminal::Write(Stream stream, std::string_view text) {
    return (stream == Stream::Output ? m_output : m_error).Write(text);
}

}  // namespace Lanscout
