// Whom a MAC address was assigned to, from Debian's ieee-data.
#pragma once

#include <filesystem>
#include <string>
#include <unordered_map>

namespace Lanscout {

class MacMakers {
public:
    // The lists are read at the first question; without them nobody is known.
    explicit MacMakers(std::filesystem::path folder = "/usr/share/ieee-data")
        : m_folder(std::move(folder)) {}

    // The maker of "00:1B:FF:01:02:03", or empty: not known, or an address that was not assigned
    // but chosen by software.
    std::string MakerOf(const std::string& mac);

private:
    void Read(const char* file, std::size_t prefixDigits);

    std::filesystem::path m_folder;
    bool m_read = false;
    std::unordered_map<std::string, std::string> m_makers;  // by the first 6, 7 or 9 digits
};

}  // namespace Lanscout
