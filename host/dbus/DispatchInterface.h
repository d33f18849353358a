#pragma once

#include <span>
#include <string>

#include "host/dbus/wire/Message.h"

namespace Tolvar {

class PlayDllClass;

/// One member of _PlayDllClass on the wire.
struct DispatchMember {
    enum class Kind { Method, Get, Let };

    const char* Name;
    Kind Is;
    const char* In;       ///< signature of a method's arguments, or of the value that Let sets
    const char* InNames;  ///< the arguments' names, parted by blanks
    const char* Out;      ///< signature of a method's results, or of the value that Get answers
    /// Reads what In says from Call, whole, before it changes anything; appends what Out says.
    void (*Run)(PlayDllClass& Player, sd_bus_message* Call, sd_bus_message* Answer);
};

/// The nineteen members in slot order.
std::span<const DispatchMember> PlayDllClassMembers();

/// True if the call changes nothing: a property is read, or the object introspected.
bool OnlyLooks(sd_bus_message* Call);

/// Carries out a call to the player object's interface or one of its properties; the result is the
/// answer, not yet sent. Calls to other interfaces, malformed ones and properties read or set the
/// wrong way are WireError and have changed nothing; what a member throws comes through.
Message Dispatch(PlayDllClass& Player, sd_bus_message* Call);

}  // namespace Tolvar
