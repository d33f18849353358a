#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "server/PlayDllClass.h"
#include "tests/model/WaveMaker.h"

namespace Tolvar::Testing {

/// One thing that an editor does.
struct Command {
    std::string_view What;             ///< as the console calls it
    std::optional<double> Value = {};  ///< a frame, milliseconds, a factor or a truth value
    /// A hand-over's. Both tempos are then set to its Value, so that they fit the wave's rate.
    std::shared_ptr<const MadeWave> Wave = {};
};

/// An editor's session with one engine, for the player and for its model.
struct Trial {
    EngineOrder Engine;
    std::vector<Command> Commands;

    /// Plays it on both, and then stops; how they first differ, or "".
    std::string Difference() const;

    /// Puts into that folder what `waveplay script` runs there, and what it prints when it is
    /// right.
    void Write(const std::string& Folder) const;
};

/// So many random commands, on random waves.
Trial RandomTrial(EngineOrder Engine, std::uint32_t Seed, int Commands);

/// The trial with as few commands as were found, written to a new folder: what differs, how to run
/// it again.
std::string Explained(const Trial& Differing);

}  // namespace Tolvar::Testing
