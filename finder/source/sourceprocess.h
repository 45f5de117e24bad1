// One process of a source. What strangers wrote is read in none but these; the UPnP library can be
// initialised once in a process only; a search of the library cannot be cut short except with its
// process; and what kills one source leaves the others alone.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "finder/machine/descriptor.h"
#include "finder/source/sender.h"

namespace Lanscout {

class SourceProcess {
public:
    // Runs `body` in a child process that ends with it; nothing when there can be no process. The
    // child dies with the tool and is out of reach of the terminal's signals. To be called while
    // the tool has one thread only.
    static std::optional<SourceProcess> Start(const std::function<void(Sender&)>& body);

    SourceProcess(SourceProcess&& other) noexcept;
    SourceProcess& operator=(SourceProcess&& other) noexcept;
    SourceProcess(const SourceProcess&) = delete;
    SourceProcess& operator=(const SourceProcess&) = delete;
    ~SourceProcess();  // ends the process with all it started

    // To be polled for reading.
    int Fd() const { return m_pipe.Fd(); }

    // Gives the process a text to read, at its Sender's Fd; false when it has ended or does not
    // take the whole text within the time.
    bool Write(std::string_view text, std::chrono::milliseconds time);

    // The process reads an end.
    void EndWriting();

    // Takes what is there to read, and hands on each whole line; false at the end.
    bool ReadLines(const std::function<void(std::string_view line)>& take);

    // Waits for the process, which is about to end (ReadLines returned false); the signal that
    // killed it, or 0.
    int Join();

    // Ends the process with all it started. What it had sent can still be read.
    void Kill();

    // Hands on the lines that are still there, of a process that has ended.
    void DrainLines(const std::function<void(std::string_view line)>& take);

private:
    SourceProcess(pid_t pid, Descriptor pipe) : m_pid(pid), m_pipe(std::move(pipe)) {}

    pid_t m_pid;
    Descriptor m_pipe;
    std::string m_pending;
};

}  // namespace Lanscout
