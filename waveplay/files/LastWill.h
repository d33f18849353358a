#pragma once

#include <signal.h>

#include <array>

namespace Tolvar {

/// While it lives, a SIGINT, SIGTERM or SIGHUP that would end the program calls Task first. A
/// signal that is blocked or ignored stays so. One at a time in a program.
class LastWill {
  public:
    /// Task runs in the signal handler: async-signal-safe calls only.
    explicit LastWill(void (*Task)() noexcept);
    ~LastWill();
    LastWill(const LastWill&) = delete;
    LastWill& operator=(const LastWill&) = delete;

  private:
    std::array<struct sigaction, 3> Before_{};
};

}  // namespace Tolvar
