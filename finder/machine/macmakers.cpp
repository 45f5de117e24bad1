#include "finder/machine/macmakers.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

#include "finder/machine/descriptor.h"
#include "finder/text/safetext.h"

namespace Lanscout {
namespace {

constexpr std::size_t kMacDigits = 12;
constexpr std::string_view kBase16 = "(base 16)";
constexpr std::string_view kHex = "(hex)";

struct List {
    const char* file;
    std::size_t prefixDigits;
};

// In blocks of 2^12 addresses, of 2^20 and of 2^24. The smaller ones come first: they were cut out
// of larger ones, which the registry keeps for itself.
constexpr std::size_t kBlockDigits = 6;
constexpr std::array kLists{List{"oui36.txt", 9}, List{"mam.txt", 7},
                            List{"oui.txt", kBlockDigits}};

std::string HexDigits(std::string_view text) {
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
    return std::string_view("2367ABEF").find(digits[1]) != std::string_view::npos;
}

}  // namespace

MappedFile::MappedFile(const std::filesystem::path& path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (!file || fstat(file.Fd(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_size == 0) {
        return;
    }
    const auto size = static_cast<std::size_t>(status.st_size);
    void* const bytes = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file.Fd(), 0);
    if (bytes != MAP_FAILED) {  // NOLINT(performance-no-int-to-ptr): the system's own macro
        m_text = {static_cast<const char*>(bytes), size};
    }
}

MappedFile::MappedFile(MappedFile&& other) noexcept : m_text(std::exchange(other.m_text, {})) {}

MappedFile::~MappedFile() {
    if (!m_text.empty()) {
        munmap(const_cast<char*>(m_text.data()), m_text.size());
    }
}

void MacMakers::Open() {
    if (std::exchange(m_open, true)) {
        return;
    }
    sd_hwdb* database = nullptr;
    if (sd_hwdb_new(&database) >= 0) {
        m_database.reset(database);
        return;
    }
    for (const List& list : kLists) {
        m_lists.emplace_back(m_folder / list.file);
    }
}

// Each assignment takes two lines that matter, the second one within a block for the smaller sizes:
//   74-1A-E0   (hex)             NAME
//   900000-9FFFFF     (base 16)  NAME
void MacMakers::ReadList(std::string_view list, std::size_t prefixDigits) {
    std::string block;
    while (!list.empty()) {
        const std::string_view line = list.substr(0, list.find('\n'));
        list.remove_prefix(std::min(line.size() + 1, list.size()));
        if (line.find(kHex) != std::string_view::npos) {
            block = HexDigits(line);
            continue;
        }
        const auto base16 = line.find(kBase16);
        if (base16 == std::string_view::npos) {
            continue;
        }
        std::string prefix = HexDigits(line);
        if (prefixDigits > kBlockDigits) {
            prefix.insert(0, block).resize(std::min(prefix.size(), prefixDigits));
        }
        if (prefix.size() == prefixDigits) {
            m_makers.try_emplace(prefix, line.substr(base16 + kBase16.size()));
        }
    }
}

void MacMakers::ReadLists() {
    if (std::exchange(m_read, true)) {
        return;
    }
    for (std::size_t i = 0; i < m_lists.size(); ++i) {
        ReadList(m_lists[i].Text(), kLists[i].prefixDigits);
    }
}

std::string MacMakers::FromDatabase(const std::string& digits) {
    const char* maker = nullptr;
    const std::string name = "OUI:" + digits;
    const bool known =
        sd_hwdb_get(m_database.get(), name.c_str(), "ID_OUI_FROM_DATABASE", &maker) >= 0;
    return known && maker != nullptr ? ToKeptText(maker) : std::string();
}

std::string MacMakers::FromLists(const std::string& digits) {
    ReadLists();
    for (const List& list : kLists) {
        const auto found = m_makers.find(digits.substr(0, list.prefixDigits));
        if (found != m_makers.end()) {
            return ToKeptText(found->second);
        }
    }
    return {};
}

std::string MacMakers::MakerOf(const std::string& mac) {
    const std::string digits = HexDigits(mac);
    if (digits.size() != kMacDigits || IsChosenBySoftware(digits)) {
        return {};
    }
    Open();
    return m_database ? FromDatabase(digits) : FromLists(digits);
}

MacMakers& SharedMacMakers() {
    static MacMakers makers;
    return makers;
}

}  // namespace Lanscout
