#include "host/standalone/logtext.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>

namespace {

struct Character {
    std::size_t bytes = 0;  // 0: not UTF-8
    char32_t code = 0;
};

// How many bytes a UTF-8 sequence with this first byte has; 0 where none may start.
std::size_t SequenceLength(unsigned char lead) {
    if (lead < 0x80) {
        return 1;
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        return 2;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        return 3;
    }
    return lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;
}

// The first character of a text that is not empty (RFC 3629: no overlong forms, no surrogates,
// nothing above U+10FFFF).
Character FirstCharacter(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text[0]);
    const std::size_t length = SequenceLength(lead);
    if (length == 0 || length > text.size()) {
        return {};
    }
    if (length == 1) {
        return {1, lead};
    }
    char32_t code = lead & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte & 0xC0u) != 0x80u) {
            return {};
        }
        code = code << 6 | (byte & 0x3Fu);
    }
    constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (code < kSmallest[length] || (code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF) {
        return {};
    }
    return {length, code};
}

bool IsHarmless(char32_t code) {
    const bool control = code < 0x20 || (code >= 0x7F && code <= 0x9F);
    const bool lineBreak = code == 0x2028 || code == 0x2029;
    const bool direction = code == 0x061C || code == 0x200E || code == 0x200F ||
                           (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
    return !control && !lineBreak && !direction && code != '\\';
}

}  // namespace

bool LogText::MakeRoom(std::size_t size) {
    const std::size_t needed = m_size + size + kCutMark.size();
    if (m_bCut || needed <= m_capacity) {
        return !m_bCut;
    }
    const std::size_t capacity = std::max(needed, 2 * m_capacity);
    std::unique_ptr<char[]> larger(new (std::nothrow) char[capacity]);
    if (!larger) {
        m_bCut = true;
        return false;
    }
    std::memcpy(larger.get(), m_pData, m_size);
    m_pHeap = std::move(larger);
    m_pData = m_pHeap.get();
    m_capacity = capacity;
    return true;
}

void LogText::Append(std::string_view text) {
    if (!MakeRoom(text.size())) {
        return;
    }
    std::memcpy(m_pData + m_size, text.data(), text.size());
    m_size += text.size();
}

void LogText::AppendEscaped(unsigned char byte) {
    constexpr char kHex[] = "0123456789abcdef";
    switch (byte) {
        case '\n':
            return Append("\\n");
        case '\r':
            return Append("\\r");
        case '\t':
            return Append("\\t");
        case '\\':
            return Append("\\\\");
        default:
            const char escape[] = {'\\', 'x', kHex[byte >> 4], kHex[byte & 0xF]};
            return Append({escape, sizeof escape});
    }
}

void LogText::AppendVisible(std::string_view text) {
    while (!text.empty()) {
        const Character first = FirstCharacter(text);
        const std::size_t length = std::max<std::size_t>(first.bytes, 1);
        if (first.bytes != 0 && IsHarmless(first.code)) {
            Append(text.substr(0, length));
        } else {
            for (const char byte : text.substr(0, length)) {
                AppendEscaped(static_cast<unsigned char>(byte));
            }
        }
        text.remove_prefix(length);
    }
}

void LogText::EndLine() {
    const std::string_view end = m_bCut ? kCutMark : std::string_view("\n");
    std::memcpy(m_pData + m_size, end.data(), end.size());  // MakeRoom always leaves room for it
    m_size += end.size();
}
