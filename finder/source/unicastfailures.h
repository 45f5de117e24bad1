// What came of single addresses that could not be asked.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_set>

#include "finder/source/sender.h"

namespace Lanscout {

class UnicastFailures {
public:
    // No Probe could be sent to that address (host byte order); `error` is the errno value.
    void Note(std::uint32_t address, int error);

    // One message for all: a failure where none of the `asked` addresses could be asked and
    // nothing else is done, or else a notice. Nothing when there was none.
    void Tell(std::size_t asked, bool nothingElse, Sender& sender) const;

private:
    std::unordered_set<std::uint32_t> m_addresses;
    std::uint32_t m_first = 0;
    int m_error = 0;
};

}  // namespace Lanscout
