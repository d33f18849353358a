#pragma once

#include <signal.h>

#include <functional>

#include "platform/Apartment.h"
#include "platform/posix/Posix.h"

namespace Tolvar {

/// While it lives, the signals that concern a terminal (SIGWINCH, SIGTSTP, SIGCONT, SIGHUP,
/// SIGQUIT) come as calls in the apartment. They are blocked in this thread and in those that it
/// starts from now on; threads that run already must have blocked them themselves.
class TerminalSignals {
  public:
    /// OnSignal gets each signal's number on the apartment's thread, which is the one that calls.
    /// RuntimeFailure(Device) when signals cannot be watched.
    TerminalSignals(Apartment& Waking, std::function<void(int Signal)> OnSignal);
    ~TerminalSignals();
    TerminalSignals(const TerminalSignals&) = delete;
    TerminalSignals& operator=(const TerminalSignals&) = delete;

    /// Stops the program as Ctrl-Z does without a handler; returns when it goes on.
    static void StopHere();

  private:
    void Deliver();

    Apartment& Home_;
    std::function<void(int Signal)> Handler_;
    sigset_t Before_{};
    Descriptor Queue_;
};

}  // namespace Tolvar
