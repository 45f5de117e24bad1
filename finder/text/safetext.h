// Makes text from the network fit to be kept and shown.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Lanscout {

enum class Charset { Utf8, Ascii };

// The longest text that is kept of anything a device says.
inline constexpr std::size_t kLongestKeptBytes = 512;

// Valid UTF-8: each byte that is not becomes U+FFFD.
std::string ToValidUtf8(std::string_view bytes);

// The same without white space at both ends and cut, at a character, to kLongestKeptBytes.
std::string ToKeptText(std::string_view bytes);

// RFC 3986 percent-encoding undone; what is none stays.
std::string DecodePercent(std::string_view text);

// Text that moves no cursor, starts no escape sequence, turns no direction, hides nothing and keeps
// to its line: control and format characters, line separators, unassigned characters, those that
// look like nothing, and marks beyond the fourth on one letter become \x1b or \u{202e}; so do all
// spaces but the usual one in a text that has nothing else. A backslash is doubled.
// With Charset::Ascii so does everything outside ASCII.
std::string ForDisplay(std::string_view text, Charset charset = Charset::Utf8);

// Columns that the text takes in a terminal.
int DisplayWidth(std::string_view text);

// Exactly `width` columns: padded with spaces, or cut between two characters, with an ellipsis.
std::string FitWidth(std::string_view text, int width, Charset charset = Charset::Utf8);

// Whether the locale's character set is UTF-8 (after setlocale).
Charset LocaleCharset();

}  // namespace Lanscout
