#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/model/WaveMaker.h"

namespace Tolvar::Testing {

/// One thing that an editor does. Value is a wave's index, a frame, milliseconds or a truth value.
struct Command {
    enum class Kind {
        HandOver,  ///< and then both tempos, so that they fit the wave's rate
        PlayAgain,
        PlayAgainRev,
        PlayUTurn,
        PlayAtPos,
        PlayAtPosRev,
        StopPlay,
        PlayPause,
        PlayContinue,
        LoopPlayON,
        PlayTempoFor,
        PlayTempoRev,
        UpdatePlayPosition,
        PlayCurrentPosition,
        Wait,
    };
    Kind What;
    std::int32_t Value = 0;
    float Factor = 1;
};

/// An editor's session with one engine, for the player and for its model.
struct Trial {
    EngineOrder Engine = EngineOrder::Dx9;
    std::vector<MadeWave> Waves;
    std::vector<Command> Commands;

    /// Plays it on both, and then stops; how they first differ, or nothing.
    std::string Difference() const;

    /// One that differs too, with as few commands as were found.
    Trial Shrunk() const;

    /// What `waveplay script` runs in a folder with the files, and what it prints when it is right.
    std::string Script() const;
    std::string Expected() const;

    /// Puts both and the files into that folder.
    void Write(const std::string& Folder) const;
};

/// Plays so many random commands; when the two differ, the trial ends there and Difference says
/// how.
Trial RandomTrial(EngineOrder Engine, std::uint32_t Seed, int Commands, std::string& Difference);

/// The trial shrunk and written to a new folder: what differs, how to run it again.
std::string Explained(const Trial& Differing);

/// What the console calls that engine.
const char* NameOf(EngineOrder Engine);

}  // namespace Tolvar::Testing
