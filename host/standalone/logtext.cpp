#include "host/standalone/logtext.h"

#include <unictype.h>
#include <unistr.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>

namespace {

// The first character of a text that is not empty. The number of its bytes, and `code`; 0 or less
// where the text does not begin with whole and valid UTF-8.
int FirstCharacter(std::string_view text, ucs4_t& code) {
    return u8_mbtoucr(&code, reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

bool IsHarmless(ucs4_t code) {
    constexpr std::uint32_t kControlOrLineBreak =
        UC_CATEGORY_MASK_Cc | UC_CATEGORY_MASK_Zl | UC_CATEGORY_MASK_Zp;
    return !uc_is_general_category_withtable(code, kControlOrLineBreak) &&
           !uc_is_property_bidi_control(code) && code != '\\';
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
        ucs4_t code = 0;
        const int bytes = FirstCharacter(text, code);
        const auto length = static_cast<std::size_t>(std::max(bytes, 1));
        if (bytes > 0 && IsHarmless(code)) {
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
