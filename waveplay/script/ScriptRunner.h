#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "waveplay/files/ExitCodes.h"
#include "waveplay/player/Session.h"
#include "waveplay/wave/BlockListBuilder.h"

namespace Tolvar {

class ScriptRunner;

/// One command of a script, its arguments read already. What it throws becomes an error line.
using ScriptAction = std::function<void(ScriptRunner&)>;

/// Runs a script's commands one after the other on a player of its own. Prints a line on standard
/// output for each report, message box, result and failure, as it comes, behind the whole
/// milliseconds since the start. One thread.
class ScriptRunner {
  public:
    /// Makes the player that Setup describes; RuntimeFailure when it cannot.
    explicit ScriptRunner(const SessionOptions& Setup);

    /// Runs all of Actions, then releases the player. Once only. ExitFailed when the player was
    /// lost, or when Strict and a command failed: the rest is then left out. ExitInterrupted after
    /// a signal. RuntimeFailure when the recording or standard output was lost.
    ExitCode Run(const std::vector<ScriptAction>& Actions, bool Strict);

    // What commands call while Run does. They throw RuntimeFailure when they fail.

    PlayerPort& Player() { return Session_.Player(); }
    /// Prints the line of a result.
    void Result(std::int32_t Value);
    /// The list that the next HandOverPending gives to the player.
    BlockListBuilder& Pending(bool Right) { return Right ? ListR_ : ListL_; }
    /// Hands both lists over and begins new ones, also when they are refused.
    void HandOverPending(std::int32_t Bits, std::int32_t Channels, std::int32_t Friq,
                         std::int32_t Frames);
    /// Hands the WAV file at Path over.
    void Load(const std::string& Path);
    /// Lets Ms milliseconds pass, fewer after a signal.
    void Wait(std::int64_t Ms);
    /// The same until the player has stopped; RuntimeFailure when it has not after MostMs.
    void WaitStop(std::int64_t MostMs);
    /// Prints the state; RuntimeFailure when the player is in another process.
    void Dump();
    void Release() { Session_.Release(); }

  private:
    void Print(std::string_view Kind, std::string_view What);
    bool Trapped(const ScriptAction& Action);

    BlockListBuilder ListL_;
    BlockListBuilder ListR_;
    Session Session_;
};

}  // namespace Tolvar
