#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "waveplay/player/PlayerControl.h"
#include "waveplay/player/Session.h"
#include "waveplay/wave/Pieces.h"

namespace Tolvar {

/// How one wave is to be played.
struct RunOptions {
    bool Reverse = false;
    bool Loop = false;
    /// Seconds from the wave's start: forward plays what lies behind that moment, reverse what
    /// lies before it, towards the start. None: all of the wave.
    std::optional<double> At;
    float Tempo = 1.0F;
    float TempoRev = 1.0F;
    std::int32_t MemorySizeToUse = 8 * 1024 * 1024;  ///< bytes
};

/// The engine to ask for: with no preference ("auto"), the waveOut engine for a wave whose rate no
/// DirectSound buffer plays.
std::string EngineFor(const Wave& Whole, const std::string& Wanted);

/// Gives the wave to the player; RuntimeFailure when its block lists are refused.
void HandOver(PlayerPort& Player, const Wave& Whole);

/// One wave handed to a session's player and played through, watched by the player's reports.
class PlayRun {
  public:
    using EventHandler = std::function<void(std::string_view Msg, std::string_view Ttl)>;

    /// Also, when it is not empty, gets every report.
    explicit PlayRun(Session& Live, EventHandler Also = {});
    ~PlayRun();
    PlayRun(const PlayRun&) = delete;
    PlayRun& operator=(const PlayRun&) = delete;

    /// RuntimeFailure when the wave has no frame, the start lies outside it or the player refuses.
    void Start(const Wave& Whole, const RunOptions& Options);

    /// What is known of the wave and how it was started. After Start.
    const PlayerControl::Facts& Facts() const { return Known_; }

    /// Frames of the wave that pass in a second of this run, before it is resampled. After Start.
    std::int32_t PlayedHz() const { return FramesPerSecond_; }

    /// Plays until the player has stopped or Quit holds; false when the user interrupted.
    /// RuntimeFailure when the player reported a failure.
    bool Finish(const std::function<bool()>& Quit = [] { return false; });

    /// Frames until the end of the wave in the direction that Options names.
    static std::int32_t FramesToPlay(const Wave& Whole, const RunOptions& Options);

  private:
    void OnReport(std::string_view Msg, std::string_view Ttl);
    void RequireNoFailure() const;

    Session& Playing_;
    EventHandler OnEvent_;
    PlayerControl::Facts Known_;
    std::int32_t FramesPerSecond_ = 0;
    std::string Failure_;  // the first failure that was reported
};

}  // namespace Tolvar
