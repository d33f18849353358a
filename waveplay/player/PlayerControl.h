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

/// A player as people know it (play, pause, seek, tempo, loop) over the members of the player
/// object: says what each command means at the edges, when paused and when stopped. Keys and media
/// controls drive the same one.
///
/// Keeps the direction, tempo and loop itself, because the port tells only position and running
/// state. Positions are boundaries: the frames that lie before the cursor, 0 to WaveNos. A command
/// that the player refuses is never thrown: it changes nothing and becomes the note. One thread,
/// the port's.
class PlayerControl {
  public:
    struct Facts {
        std::int32_t WaveNos = 0;    ///< frames, more than 0
        std::int32_t FmtFriq = 0;    ///< Hz
        std::int32_t Direction = 1;  ///< 1 forward, -1 reverse
        bool Loop = false;
        double TempoFor = 1.0;  ///< 1.0 is the wave's own rate
        double TempoRev = 1.0;
        bool HasTempo = true;     ///< false: the engine plays at the wave's own rate
        bool WasStarted = false;  ///< a play has begun; if it is over, the wave was played out
    };
    enum class Change {
        Transport,
        Jump,  ///< the cursor is not where play would have brought it, or the direction is another
        Rate,
        Loop,
        Note,  ///< the note or the last report
    };
    using Listener = std::function<void(Change)>;

    /// The wave has been handed over with the settings in Wave; it may be playing already. Player
    /// outlives this, and whoever receives its reports passes them on to Report.
    PlayerControl(PlayerPort& Player, const Facts& Wave);

    /// Calls OnChange after each change from now on, in the call that makes it. There is no way
    /// back: what OnChange uses outlives this.
    void Listen(Listener OnChange) { Listeners_.push_back(std::move(OnChange)); }

    /// Takes one report of the player. One that tells of a failure becomes the note.
    void Report(std::string_view Msg, std::string_view Ttl);

    /// From the cursor in the current direction; from the other edge when nothing lies ahead.
    void Play();
    void Pause();
    /// Pause while it plays, else Play.
    void PlayPause();
    /// The cursor stays, so that Play goes on from there.
    void Stop();
    /// Play in that direction; what plays in the other one turns round.
    void PlayForward() { PlayTowards(1); }
    void PlayReverse() { PlayTowards(-1); }
    /// The other direction from here; what is paused stays paused.
    void UTurn();
    /// Clamped into the wave. What plays goes on playing, or stops where nothing lies ahead (from
    /// the other edge in a loop); what does not play stays where it is put.
    void SeekToFrame(std::int64_t Boundary);
    /// The same in seconds of the wave, from its start or from here.
    void SeekTo(double Seconds);
    void SeekBy(double Seconds);
    /// The tempo of the current direction; heard at once. Clamped so that 100 to 100000 frames pass
    /// in a second.
    void SetRate(double Factor);
    void SetLoop(bool On);

    /// While it plays, asks the player where it is. State and Here are as of the last command,
    /// report or Refresh. RuntimeFailure when the player is gone.
    void Refresh();

    const Facts& Wave() const { return Wave_; }
    Transport State() const { return State_; }
    std::int32_t Here() const { return Cursor_; }
    /// The tempo of the current direction.
    double Rate() const { return Wave_.Direction < 0 ? Wave_.TempoRev : Wave_.TempoFor; }
    const std::string& LastReport() const { return LastReport_; }
    /// Empty when there is nothing to say; a play that begins takes it away.
    const PlayerNote& Note() const { return Note_; }
    void Say(std::string Text, bool IsFailure = false);

  private:
    template <typename Operation>
    bool Trapped(Operation Do);
    void PlayTowards(std::int32_t Direction);
    bool NothingAhead() const;
    void RunFromCursor();
    void TakeRunningState(std::int32_t RunningState);
    void ReadCursor();
    void SetState(Transport State);
    void Tell(Change What);

    PlayerPort& Port_;
    Facts Wave_;
    std::vector<Listener> Listeners_;
    Transport State_ = Transport::Stopped;
    std::int32_t Cursor_ = 0;
    bool Moved_ = true;       // the cursor is not where the player stands, so a play starts anew
    bool EndUntold_ = false;  // Refresh found the player stopped before a report told why
    std::string LastReport_;
    PlayerNote Note_;
};

}  // namespace Tolvar
