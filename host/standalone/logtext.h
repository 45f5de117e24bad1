// A log line while it is put together.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

// Text that grows and never throws. When memory is refused it keeps what it has room for and drops
// the rest; a line is then ended with a mark that says so.
class LogText {
public:
    // Appends text as it is.
    void Append(std::string_view text);

    // Appends received text so that it can do a terminal or a log file no harm and one line stays
    // one line: control characters (C0, DEL, C1), bytes that are not UTF-8 and characters that turn
    // the reading direction or break lines appear as escapes (\n, \x1b), a backslash as two, so
    // that the original can be told.
    void AppendVisible(std::string_view text);

    // Marks the line as one of which a part is missing.
    void Cut() { m_bCut = true; }

    // Ends the line with '\n'; nothing may be appended afterwards.
    void EndLine();

    std::string_view View() const { return {m_pData, m_size}; }

private:
    static constexpr std::string_view kCutMark = " [cut: no memory]\n";

    bool MakeRoom(std::size_t size);
    void AppendEscaped(unsigned char byte);

    char m_aLocal[1024];  // most lines fit; also what is left when memory is refused
    std::unique_ptr<char[]> m_pHeap;
    char* m_pData = m_aLocal;
    std::size_t m_size = 0;
    std::size_t m_capacity = sizeof m_aLocal;
    bool m_bCut = false;
};
