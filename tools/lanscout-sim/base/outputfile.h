// A file of the user's that is written at the end of a run, and known to be writable at its start.
#pragma once

#include <string>

namespace lansim {

// The text goes into a draft beside the file, which takes the file's place when all of it is
// there. Devices, pipes and "-" (standard output) are written to directly.
class OutputFile {
public:
    // Throws SetupError when the file cannot be written.
    explicit OutputFile(const std::string& name);
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    ~OutputFile();

    // Once. Throws SetupError when not all of it could be written.
    void Write(const std::string& text);

private:
    void MakeDraft();
    [[noreturn]] void Fail() const;

    std::string m_name;    // as the user gave it
    std::string m_target;  // where symbolic links lead
    std::string m_draft;   // empty when there is none
    int m_fd = -1;
};

}  // namespace lansim
