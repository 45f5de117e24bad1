// Standard output and standard error, as the console needs them. Tests have one of their own.
#pragma once

#include <string_view>

#include "finder/finder.h"
#include "finder/machine/descriptor.h"
#include "tools/lanscout/output/patientwriter.h"

namespace Lanscout {

enum class Stream { Output, Error };

struct TerminalSize {
    int columns = 0;
    int rows = 0;
};

class Terminal {
public:
    Terminal() = default;
    virtual ~Terminal() = default;
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    virtual bool IsTerminal(Stream stream) const = 0;
    virtual TerminalSize SizeOf(Stream stream) const = 0;

    // All of it, or an errno value; 0 when it was written.
    virtual int Write(Stream stream, std::string_view text) = 0;
};

class SystemTerminal : public Terminal {
public:
    // Waits for a reader that is slow, until `wake` says that the user wants an end.
    explicit SystemTerminal(Wake wake);

    bool IsTerminal(Stream stream) const override;
    TerminalSize SizeOf(Stream stream) const override;
    int Write(Stream stream, std::string_view text) override;

private:
    PatientWriter m_output;
    PatientWriter m_error;
};

}  // namespace Lanscout
