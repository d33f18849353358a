#pragma once

#include <string>

#include "platform/Apartment.h"
#include "waveplay/player/PlayerPort.h"

namespace Tolvar {

class PlayServer;

/// Where a session's player lives, with the message loop that brings its reports. Abstract because
/// it lives in this process or in one of its own. One thread: the one that made it.
class PlayerHost {
  public:
    virtual ~PlayerHost() = default;

    virtual Apartment& Home() = 0;
    virtual PlayerPort& Port() = 0;

    /// The player's inside; null when it is not in this process.
    virtual const PlayServer* Inside() const = 0;

    /// Why the player is gone although nobody let go of it; "": it is not.
    virtual std::string WhyGone() const = 0;

    /// After the player's Release. Everything heard is on its medium when it returns;
    /// RuntimeFailure when some of it was lost. At most once.
    virtual void Finish() = 0;
};

}  // namespace Tolvar
