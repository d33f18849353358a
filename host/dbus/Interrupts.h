#pragma once

#include "platform/Apartment.h"

namespace Tolvar {

/// While it lives, SIGINT, SIGTERM and SIGHUP wake the apartment and are noted instead of ending
/// the program. Apartment's thread.
class Interrupts {
  public:
    explicit Interrupts(Apartment& Waking);
    ~Interrupts();
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

    /// Whether a signal has come. Looks itself, because the virtual clock watches no descriptor.
    bool Seen();

  private:
    Apartment& Home_;
    int Fd_ = -1;
    bool HasSeen_ = false;
};

}  // namespace Tolvar
