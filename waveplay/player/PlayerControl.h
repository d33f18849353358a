#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "waveplay/player/PlayerPort.h"

namespace Tolvar {

enum class Transport {
    Stopped,
    Playing,
    Paused,
    Ended,  ///< the wave has been played out
};

/// The last thing worth telling the listener.
struct PlayerNote {
    std::string Text;
    bool IsFailure = false;
};

/// The commands of a player that people hold in their hands, over the members of the player
/// object: what play, pause and seek mean at the edges, when paused and when stopped. Keys and
/// remote controls drive the same one.
///
/// Knows the direction, tempo and loop itself, because the port answers only position and running
/// state. Positions are boundaries: the frames that lie before the cursor, 0 to WaveNos. A call
/// that the player refuses becomes the note and is never thrown. One thread, the port's.
class PlayerControl {
  public:
    struct Facts {
        std::int32_t WaveNos = 0;  ///< frames, more than 0
        std::int32_t FmtFriq = 0;  ///< Hz
        std::int32_t Direction = 1;
        bool Loop = false;
        double TempoFor = 1.0;
        double TempoRev = 1.0;
        bool HasTempo = true;  ///< false: the engine plays at the wave's own rate
    };
    enum class Change { Transport, Jump, Rate, Loop, Note };
    using Listener = std::function<void(Change)>;

    /// The wave has been handed over with the settings in Facts; it may be playing already.
    PlayerControl(PlayerPort& Player, const Facts& Wave);

    /// Calls OnChange after each change from now on; it must stay valid.
    void Listen(Listener OnChange) { Listeners_.push_back(std::move(OnChange)); }

    /// Every report of the player is to be passed on here.
    void Report(std::string_view Msg, std::string_view Ttl);

    /// From the cursor in the current direction; from the other edge when nothing lies ahead.
    void Play();
    void Pause();
    void PlayPause();
    /// The cursor stays, so that Play goes on from there.
    void Stop();
    void PlayForward() { PlayTowards(1); }
    void PlayReverse() { PlayTowards(-1); }
    /// The other direction from here; what is paused stays paused.
    void UTurn();
    /// Clamped into the wave. What plays goes on playing, or stops where nothing lies ahead (from
    /// the other edge in a loop); what does not play stays where it is put.
    void SeekToFrame(std::int64_t Boundary);
    void SeekTo(double Seconds);
    void SeekBy(double Seconds);
    /// The tempo of the current direction, held to 100 to 100000 Hz; heard at once.
    void SetRate(double Factor);
    void SetLoop(bool On);

    /// Asks the player where it is while it plays. RuntimeFailure when the player is gone.
    void Refresh();

    const Facts& Wave() const { return Known_; }
    Transport State() const { return Now_; }
    std::int32_t Here() const { return Cursor_; }
    double Rate() const { return Known_.Direction < 0 ? Known_.TempoRev : Known_.TempoFor; }
    const std::string& LastReport() const { return LastText_; }
    const PlayerNote& Note() const { return Said_; }
    void Say(std::string Text, bool IsFailure = false);

  private:
    template <typename Operation>
    bool Attempt(Operation Do);
    void PlayTowards(std::int32_t Direction);
    bool NothingAhead() const;
    void RunFromCursor();
    void Adopt(std::int32_t RunningState);
    void ReadCursor();
    void Become(Transport State);
    void Tell(Change What);

    PlayerPort& Port_;
    Facts Known_;
    std::vector<Listener> Listeners_;
    Transport Now_ = Transport::Stopped;
    std::int32_t Cursor_ = 0;
    bool Moved_ = true;  // the cursor is not where the player stands, so a play starts anew
    std::string LastText_;
    PlayerNote Said_;
};

}  // namespace Tolvar
