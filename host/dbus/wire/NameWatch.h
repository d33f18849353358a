#pragma once

#include <memory>
#include <string>

#include "host/dbus/wire/BusLink.h"

namespace Tolvar {

/// Follows a process on the bus by its unique name. One thread.
class NameWatch {
  public:
    /// RuntimeFailure when nobody of that name is there. Link stays the caller's.
    NameWatch(BusLink& Link, const std::string& UniqueName);
    NameWatch(const NameWatch&) = delete;
    NameWatch& operator=(const NameWatch&) = delete;

    /// Whether it has left the bus, as far as the link has received.
    bool Left() const { return HasLeft_; }

  private:
    struct SlotUnref {
        void operator()(sd_bus_slot* Held) const { sd_bus_slot_unref(Held); }
    };
    static int OnChange(sd_bus_message* Come, void* Self, sd_bus_error* Error);

    bool HasLeft_ = false;
    std::unique_ptr<sd_bus_slot, SlotUnref> Match_;
};

}  // namespace Tolvar
