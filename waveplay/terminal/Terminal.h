#pragma once

#include <termios.h>

#include <string>
#include <string_view>

#include "platform/posix/Posix.h"

namespace Tolvar {

struct TerminalSize {
    int Columns = 80;
    int Rows = 24;
};

/// The terminal while a full-screen interface has it: keys come one by one and unseen, the picture
/// is on the alternate screen, so that what the shell had written stands again afterwards. Keys
/// that send signals (Ctrl-C, Ctrl-Z) keep doing so.
///
/// Has a descriptor of its own that never waits, so that neither a slow terminal holds the program
/// up (as it would with curses, which waits) nor the descriptors that the shell shares change. One
/// thread.
class Terminal {
  public:
    /// RuntimeFailure(Device) when Path cannot be opened or is no terminal.
    explicit Terminal(const std::string& Path);
    /// Calls Leave.
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// Takes the terminal; called again after somebody else may have changed it, takes it anew.
    /// RuntimeFailure(Device) when it refuses.
    void Enter();
    /// Gives it back as it was; waits up to 200 ms for a terminal that takes no output. Does
    /// nothing when it has not been taken.
    void Leave() noexcept;

    /// For Apartment::Watch; readable when keys wait. Stays the same.
    int Fd() const { return Device_.Get(); }
    /// As of now; 80 x 24 when the terminal does not know.
    TerminalSize Size() const;

    /// The bytes typed so far, without waiting.
    std::string Read();
    /// True once a read or write has found the terminal gone.
    bool HungUp() const { return Gone_; }

    /// Sends Bytes, as far as the terminal takes them now; the rest is kept for Flush.
    void Write(std::string_view Bytes);
    /// True when nothing is left to send.
    bool Flush();

  private:
    bool InForeground() const;

    Descriptor Device_;
    std::string Unsent_;
    termios Before_{};
    bool Entered_ = false;
    bool Gone_ = false;
};

}  // namespace Tolvar
