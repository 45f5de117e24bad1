// The signals that end, stop and resize the tool, as something to poll.
#pragma once

namespace Lanscout {

// Blocks SIGINT, SIGTERM, SIGHUP, SIGWINCH and SIGCONT for as long as it lives, and collects them.
class Signals {
public:
    Signals();
    ~Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    // To be polled for reading, then Take.
    int Fd() const { return m_fd; }
    void Take();

    // Whether the user wants an end.
    bool Interrupted() const { return m_interrupted; }

    // Whether the program was stopped meanwhile and goes on now; true once for each time.
    bool TakeResumed();

    // Waits until `milliseconds` have passed or the user wants an end.
    void WaitFor(long milliseconds);

private:
    int m_fd;
    bool m_interrupted = false;
    bool m_resumed = false;
};

}  // namespace Lanscout
