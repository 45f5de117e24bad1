#include "finder/machine/macmakers.h"

#include <algorithm>
#include <cctype>
#include <fstream>

#include "finder/text/safetext.h"

namespace Lanscout {
namespace {

constexpr std::size_t kMacDigits = 12;
constexpr std::size_t kBlockDigits = 6;   // assigned in blocks of 2^24 addresses ...
constexpr std::size_t kMediumDigits = 7;  // ... 2^20 ...
constexpr std::size_t kSmallDigits = 9;   // ... and 2^12
constexpr char kBase16[] = "(base 16)";
constexpr char kHex[] = "(hex)";

std::string HexDigits(const std::string& text) {
    std::string digits;
    for (const char byte : text) {
        const auto c = static_cast<unsigned char>(byte);
        if (std::isxdigit(c) != 0) {
            digits += static_cast<char>(std::toupper(c));
        } else if (c != ':' && c != '-') {
            break;
        }
    }
    return digits;
}

// Second-lowest bit of the first byte: administered locally.
bool IsChosenBySoftware(const std::string& digits) {
    return std::string("2367ABEF").find(digits[1]) != std::string::npos;
}

std::string NameBehind(const std::string& line, std::size_t at) {
    return at < line.size() ? ToKeptText(line.substr(at)) : std::string();
}

}  // namespace

// Each assignment takes two lines that matter, the second one within a block for the smaller sizes:
//   74-1A-E0   (hex)             NAME
//   900000-9FFFFF     (base 16)  NAME
void MacMakers::Read(const char* file, std::size_t prefixDigits) {
    std::ifstream list(m_folder / file);
    std::string block;
    for (std::string line; std::getline(list, line);) {
        if (const auto hex = line.find(kHex); hex != std::string::npos) {
            block = HexDigits(line);
        }
        const auto base16 = line.find(kBase16);
        if (base16 == std::string::npos) {
            continue;
        }
        std::string prefix = HexDigits(line);
        if (prefixDigits > kBlockDigits) {
            prefix.insert(0, block).resize(std::min(prefix.size(), prefixDigits));
        }
        if (prefix.size() == prefixDigits) {
            m_makers.try_emplace(prefix, NameBehind(line, base16 + sizeof kBase16 - 1));
        }
    }
}

std::string MacMakers::MakerOf(const std::string& mac) {
    const std::string digits = HexDigits(mac);
    if (digits.size() != kMacDigits || IsChosenBySoftware(digits)) {
        return {};
    }
    if (!m_read) {
        m_read = true;
        Read("oui36.txt", kSmallDigits);
        Read("mam.txt", kMediumDigits);
        Read("oui.txt", kBlockDigits);
    }
    for (const std::size_t length : {kSmallDigits, kMediumDigits, kBlockDigits}) {
        const auto found = m_makers.find(digits.substr(0, length));
        if (found != m_makers.end()) {
            return found->second;
        }
    }
    return {};
}

}  // namespace Lanscout
