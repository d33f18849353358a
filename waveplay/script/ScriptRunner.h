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

/// One command of a script, ready to be run. What it throws becomes an error line.
using ScriptAction = std::function<void(ScriptRunner&)>;

/// Runs a script's commands one after the other and prints one line per happening on standard
/// output, each behind the whole milliseconds since the start.
class ScriptRunner {
  public:
    explicit ScriptRunner(const SessionOptions& Setup);

    /// All of them, then the editor lets go. ExitFailed when Strict and a command failed: the
    /// rest is then left out. RuntimeFailure when the recording or the output was lost.
    ExitCode Run(const std::vector<ScriptAction>& Actions, bool Strict);

    // What the commands are made of.
    PlayerPort& Player() { return Live_.Player(); }
    void Result(std::int32_t Value);
    BlockListBuilder& Pending(bool Right) { return Right ? ListR_ : ListL_; }
    void HandOverPending(std::int32_t Bits, std::int32_t Channels, std::int32_t Friq,
                         std::int32_t Frames);
    void Load(const std::string& Path);
    void Wait(std::int64_t Ms);
    void WaitStop(std::int64_t MostMs);
    void Dump();
    void Release() { Live_.Release(); }

  private:
    void Print(std::string_view Kind, std::string_view What);
    bool Try(const ScriptAction& Action);

    BlockListBuilder ListL_;
    BlockListBuilder ListR_;
    Session Live_;
};

}  // namespace Tolvar
