// Writing to somebody who may not read: a full pipe, a stopped terminal, a FIFO that nobody has
// opened. The user's signals are heard meanwhile.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "finder/finder.h"
#include "finder/machine/descriptor.h"

namespace Lanscout {

// How long the reader is still waited for when the user wants an end: what was found shall be
// written if it can.
inline constexpr std::chrono::milliseconds kLastPatience{1000};

class PatientWriter {
public:
    // Writes to `fd`, which stays the caller's, and never blocks longer than the wake allows. A
    // non-blocking one is waited for.
    PatientWriter(int fd, Wake wake, std::chrono::milliseconds lastPatience = kLastPatience);

    // All of it, or an errno value: ECANCELED when the user wanted an end and the reader did not
    // read. After that nothing is waited for any more.
    int Write(std::string_view text);

private:
    long WriteSome(std::string_view text) const;
    bool WaitUntilWritable();

    int m_fd;
    Descriptor m_own;  // the same file, opened again so that it does not block others' writes
    bool m_isSocket = false;
    Wake m_wake;
    std::chrono::milliseconds m_lastPatience;
    std::optional<std::chrono::steady_clock::time_point> m_end;
};

// Opens a FIFO, a device or the like for writing, waiting for its reader; throws
// std::runtime_error with the reason.
Descriptor OpenPatiently(const std::string& path, const Wake& wake);

}  // namespace Lanscout
