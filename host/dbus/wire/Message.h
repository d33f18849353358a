#pragma once

#include <systemd/sd-bus.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "host/dbus/wire/Names.h"

namespace Tolvar {

/// One reference to a message.
struct MessageUnref {
    void operator()(sd_bus_message* Held) const { sd_bus_message_unref(Held); }
};
using Message = std::unique_ptr<sd_bus_message, MessageUnref>;

/// A failure as it crosses the wire: the D-Bus name of the error and its text.
class WireError : public std::runtime_error {
  public:
    WireError(const char* Name, const std::string& Text) : std::runtime_error(Text), Name_(Name) {}
    const char* Name() const noexcept { return Name_; }

  private:
    const char* Name_;  // one of Names.h
};

/// The result of an sd-bus call that only fails when the process has no memory or the connection
/// is gone: RuntimeFailure with What and the system's text when it is negative.
int Sent(int Result, const std::string& What);

/// The result of reading an argument; WireError(InvalidArgs) when there is none of that type.
int Taken(int Result);

/// WireError(InvalidArgs) unless the arguments are exactly those.
void RequireSignature(sd_bus_message* Call, const char* Signature);

/// Empty for a null pointer, which is what sd-bus gives for a field that a message has not.
inline std::string_view TextOf(const char* MayBeNull) {
    return MayBeNull == nullptr ? "" : MayBeNull;
}

/// Text in which every byte that is not part of valid UTF-8, and every zero byte, has become
/// U+FFFD: the wire takes no other.
std::string WireText(std::string_view Text);

/// Answers Call with the error. False when the answer could not be sent, as without memory or on a
/// connection that is gone.
bool Refuse(sd_bus_message* Call, const char* Name, std::string_view Text) noexcept;

}  // namespace Tolvar
