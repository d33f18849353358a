#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <functional>
#include <string>

#include "waveplay/player/PlayerControl.h"

namespace Tolvar {

/// What remote controls are told of a wave.
struct MprisFacts {
    std::string Title;
    std::string Url;  ///< "": it is more than one file, or none
};

/// The two interfaces of an MPRIS object as sd-bus serves them. A command that the player refuses
/// is an error for who gave it. Positions are microseconds from the wave's start, and the rate is
/// positive in either direction. One thread.
class MprisObject {
  public:
    static constexpr const char* Path = "/org/mpris/MediaPlayer2";
    static constexpr const char* RootInterface = "org.mpris.MediaPlayer2";
    static constexpr const char* PlayerInterface = "org.mpris.MediaPlayer2.Player";

    MprisObject(PlayerControl& Player, MprisFacts Facts, std::function<void()> OnQuit);

    /// Serves Bus, which the object outlives. False: it cannot be used.
    bool AddTo(sd_bus* Bus);

    PlayerControl& Player() { return Control_; }
    const MprisFacts& Wave() const { return Facts_; }
    void Quit() { OnQuit_(); }

    const char* Status() const;
    /// Where the player is now. RuntimeFailure when it is gone.
    std::int64_t PositionUs();
    std::int64_t LengthUs() const;

  private:
    PlayerControl& Control_;
    MprisFacts Facts_;
    std::function<void()> OnQuit_;
};

}  // namespace Tolvar
