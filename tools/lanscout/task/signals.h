// The signals that end, stop and resize the command, as something to poll.
#pragma once

#include <chrono>

#include "finder/machine/descriptor.h"

namespace Lanscout {

class Signals {
public:
    Signals() = default;
    virtual ~Signals() = default;
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    // To be polled for reading, then Take.
    virtual int Fd() const = 0;
    virtual void Take() = 0;

    // Whether the user wants an end.
    virtual bool Interrupted() const = 0;

    // Whether the program was stopped meanwhile and goes on now; true once for each time.
    virtual bool TakeResumed() = 0;

    // Whether SIGHUP came, where it does not mean an end; true once for each time.
    virtual bool TakeHangup() = 0;

    // Waits until one of the signals has come, or that long; then Take.
    virtual void WaitFor(std::chrono::milliseconds longest) = 0;
};

// Blocks the signals for as long as it lives, and collects them. Those that the parent told us to
// ignore (nohup) stay ignored. Where they cannot be collected, they end the program as usual.
class SystemSignals : public Signals {
public:
    enum class Hangup { Ends, IsCollected };
    explicit SystemSignals(Hangup hangup = Hangup::Ends);
    ~SystemSignals() override;

    int Fd() const override { return m_fd.Fd(); }
    void Take() override;
    bool Interrupted() const override { return m_interrupted; }
    bool TakeResumed() override;
    bool TakeHangup() override;
    void WaitFor(std::chrono::milliseconds longest) override;

private:
    Descriptor m_fd;
    Hangup m_hangup;
    bool m_interrupted = false;
    bool m_resumed = false;
    bool m_hungUp = false;
};

}  // namespace Lanscout
