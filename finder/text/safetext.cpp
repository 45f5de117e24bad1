#include "finder/text/safetext.h"

#include <fmt/core.h>
#include <langinfo.h>
#include <unictype.h>
#include <unistr.h>
#include <uniwidth.h>

#include <charconv>
#include <cstdint>
#include <iterator>

namespace Lanscout {
namespace {

constexpr ucs4_t kReplacement = 0xFFFD;
constexpr char kEncoding[] = "UTF-8";

struct Character {
    ucs4_t code;
    std::size_t length;
    bool valid;
};

Character CharacterAt(std::string_view text, std::size_t at) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data()) + at;
    ucs4_t code = kReplacement;
    const int length = u8_mbtoucr(&code, bytes, text.size() - at);
    if (length <= 0) {
        return {kReplacement, 1, false};
    }
    return {code, static_cast<std::size_t>(length), true};
}

// More marks on one letter than any script needs would cover the lines above and below.
constexpr int kMostMarks = 4;

constexpr ucs4_t kBrailleBlank = 0x2800;

// Has a width, or none, and nothing to see: fillers of scripts, joiners, selectors.
bool IsBlankLooking(ucs4_t code) {
    return code == kBrailleBlank || uc_is_property_default_ignorable_code_point(code);
}

bool IsShowable(ucs4_t code, Charset charset) {
    if (charset == Charset::Ascii && code > 0x7E) {
        return false;
    }
    constexpr std::uint32_t kHidden = UC_CATEGORY_MASK_Cc | UC_CATEGORY_MASK_Cf |
                                      UC_CATEGORY_MASK_Cs | UC_CATEGORY_MASK_Cn |
                                      UC_CATEGORY_MASK_Zl | UC_CATEGORY_MASK_Zp;
    return !uc_is_general_category_withtable(code, kHidden) && !IsBlankLooking(code);
}

bool IsMark(ucs4_t code) {
    return uc_is_general_category_withtable(code, UC_CATEGORY_MASK_M);
}

// Whether the text has anything to see but spaces, of which there are many kinds.
bool HasInk(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const Character character = CharacterAt(text, at);
        if (!uc_is_general_category_withtable(character.code, UC_CATEGORY_MASK_Zs)) {
            return true;
        }
        at += character.length;
    }
    return false;
}

void AppendCode(std::string& shown, ucs4_t code) {
    if (code < 0x80) {
        fmt::format_to(std::back_inserter(shown), "\\x{:02x}", code);
    } else {
        fmt::format_to(std::back_inserter(shown), "\\u{{{:x}}}", code);
    }
}

int WidthOf(ucs4_t code) {
    const int width = uc_width(code, kEncoding);
    return width < 0 ? 0 : width;
}

std::string_view TrimWhiteSpace(std::string_view text) {
    constexpr char kWhiteSpace[] = " \t\r\n\v\f";
    const auto first = text.find_first_not_of(kWhiteSpace);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kWhiteSpace) - first + 1);
}

}  // namespace

std::string ToValidUtf8(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    for (std::size_t at = 0; at < bytes.size();) {
        const Character character = CharacterAt(bytes, at);
        text.append(character.valid ? bytes.substr(at, character.length) : "\xEF\xBF\xBD");
        at += character.length;
    }
    return text;
}

std::string ToKeptText(std::string_view bytes) {
    std::string text = ToValidUtf8(TrimWhiteSpace(bytes).substr(0, kLongestKeptBytes + 4));
    if (text.size() <= kLongestKeptBytes) {
        return text;
    }
    std::size_t end = 0;
    for (std::size_t next = 0; next <= kLongestKeptBytes;) {
        end = next;
        next += CharacterAt(text, next).length;
    }
    return std::string(TrimWhiteSpace(std::string_view(text).substr(0, end)));  // of the cut's end
}

std::string DecodePercent(std::string_view text) {
    std::string decoded;
    for (std::size_t at = 0; at < text.size(); ++at) {
        unsigned int byte = 0;
        const char* const digits = text.data() + at + 1;
        if (text[at] == '%' && text.size() - at > 2 &&
            std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
            decoded += static_cast<char>(byte);
            at += 2;
        } else {
            decoded += text[at];
        }
    }
    return decoded;
}

std::string ForDisplay(std::string_view text, Charset charset) {
    std::string shown;
    shown.reserve(text.size());
    const bool hasInk = HasInk(text);
    int marks = 0;
    for (std::size_t at = 0; at < text.size();) {
        const Character character = CharacterAt(text, at);
        marks = character.valid && IsMark(character.code) ? marks + 1 : 0;
        const bool isBlank = !hasInk && character.code != ' ';
        if (!character.valid) {
            fmt::format_to(std::back_inserter(shown), "\\x{:02x}",
                           static_cast<unsigned char>(text[at]));
        } else if (character.code == '\\') {
            shown += "\\\\";
        } else if (IsShowable(character.code, charset) && marks <= kMostMarks && !isBlank) {
            shown += text.substr(at, character.length);
        } else {
            AppendCode(shown, character.code);
        }
        at += character.length;
    }
    return shown;
}

int DisplayWidth(std::string_view text) {
    int width = 0;
    for (std::size_t at = 0; at < text.size();) {
        const Character character = CharacterAt(text, at);
        width += WidthOf(character.code);
        at += character.length;
    }
    return width;
}

std::string FitWidth(std::string_view text, int width, Charset charset) {
    const int natural = DisplayWidth(text);
    if (natural <= width) {
        return std::string(text) + std::string(static_cast<std::size_t>(width - natural), ' ');
    }
    if (width <= 0) {
        return {};
    }
    std::size_t end = 0;
    int used = 0;
    while (end < text.size()) {
        const Character character = CharacterAt(text, end);
        if (used + WidthOf(character.code) > width - 1) {
            break;
        }
        used += WidthOf(character.code);
        end += character.length;
    }
    std::string fitted(text.substr(0, end));
    fitted += charset == Charset::Utf8 ? "…" : "~";
    fitted.append(static_cast<std::size_t>(width - 1 - used), ' ');
    return fitted;
}

Charset LocaleCharset() {
    return std::string_view(nl_langinfo(CODESET)) == "UTF-8" ? Charset::Utf8 : Charset::Ascii;
}

}  // namespace Lanscout
