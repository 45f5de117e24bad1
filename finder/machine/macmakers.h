// The maker that a MAC address was assigned to.
#pragma once

#include <systemd/sd-hwdb.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Lanscout {

// A file's bytes, shared with whoever else has the file mapped; nothing where it cannot be had.
class MappedFile {
public:
    explicit MappedFile(const std::filesystem::path& path);
    MappedFile(MappedFile&& other) noexcept;
    MappedFile& operator=(MappedFile&&) = delete;
    ~MappedFile();

    std::string_view Text() const { return m_text; }

private:
    std::string_view m_text;
};

// Asks the hardware database (systemd-hwdb) or, where there is none, the lists of Debian's
// ieee-data. For one thread at a time.
class MacMakers {
public:
    explicit MacMakers(std::filesystem::path folder = "/usr/share/ieee-data")
        : m_folder(std::move(folder)) {}

    // Opens what the answers come from, which the first question does otherwise: for a process that
    // is about to lose the right to open files. Reads nothing yet.
    void Open();

    // The maker of "00:1B:FF:01:02:03", or empty: not known, or an address that was not assigned
    // but chosen by software.
    std::string MakerOf(const std::string& mac);

private:
    struct Unref {
        void operator()(sd_hwdb* database) const { sd_hwdb_unref(database); }
    };

    std::string FromDatabase(const std::string& digits);
    std::string FromLists(const std::string& digits);
    void ReadLists();
    void ReadList(std::string_view list, std::size_t prefixDigits);

    std::filesystem::path m_folder;
    bool m_open = false;
    bool m_read = false;
    std::unique_ptr<sd_hwdb, Unref> m_database;
    std::vector<MappedFile> m_lists;
    std::unordered_map<std::string, std::string_view> m_makers;  // by the first 6, 7 or 9 digits
};

// The one that this process asks, so that lists are read once however many searches it does.
MacMakers& SharedMacMakers();

}  // namespace Lanscout
