// --state: the file that keeps a watch's list over a restart.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "tools/lanscout/task/surroundings.h"
#include "tools/lanscout/task/watchlist.h"

namespace Lanscout {

// What does not fit is left out, so that what was written can be read.
inline constexpr std::size_t kLongestStateBytes = std::size_t{32} * 1024 * 1024;

std::string StateDocument(const std::vector<WatchList::Entry>& entries);

// The entries, or what is wrong with the text.
std::variant<std::vector<WatchList::Entry>, std::string> EntriesFromState(std::string_view text);

// Writes the list, not more often than every ten seconds unless it is the last time.
class StateFile {
public:
    // With an empty path nothing is read or written.
    StateFile(std::string path, Surroundings& world);

    // What an earlier watch has left; no file is an empty list. Throws std::runtime_error when the
    // file is none of ours or cannot be written, and leaves it as it is.
    std::vector<WatchList::Entry> Read() const;

    // A watch goes on without its file; that is said once for each reason.
    void Keep(const WatchList& list);
    void KeepAtLast(const WatchList& list);

private:
    std::string m_path;
    Surroundings& m_world;  // NOLINT: lives longer
    std::optional<std::chrono::steady_clock::time_point> m_written;
    std::string m_failure;
};

}  // namespace Lanscout
